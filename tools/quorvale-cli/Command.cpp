#include "Command.h"

#include <algorithm>
#include <cstring>

namespace cli {

namespace {
std::vector<const Command*>& registry() {
    static std::vector<const Command*> list;
    return list;
}
} // namespace

CommandRegistration::CommandRegistration(const Command& command) {
    registry().push_back(&command);
}

std::vector<const Command*> commands() {
    std::vector<const Command*> list = registry();
    std::sort(list.begin(), list.end(),
              [](const Command* a, const Command* b) { return std::strcmp(a->name, b->name) < 0; });
    return list;
}

const Command* findCommand(const std::string& name) {
    for (const Command* c : registry()) {
        if (name == c->name) {
            return c;
        }
    }
    return nullptr;
}

} // namespace cli
