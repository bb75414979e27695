#include "app/UserMessages.h"

#include <QApplication>
#include <QMessageBox>

namespace {

class MessageBoxes : public UserMessages {
public:
    void error(QWidget* parent, const QString& text) override {
        QMessageBox::warning(parent, QApplication::applicationDisplayName(), text);
    }
    Answer ask(QWidget* parent, const QString& text, bool withCancel) override {
        QMessageBox::StandardButtons buttons = QMessageBox::Yes | QMessageBox::No;
        if (withCancel) {
            buttons |= QMessageBox::Cancel;
        }
        const auto b =
            QMessageBox::question(parent, QApplication::applicationDisplayName(), text, buttons);
        return b == QMessageBox::Yes  ? Answer::yes
               : b == QMessageBox::No ? Answer::no
                                      : Answer::cancel;
    }
};

MessageBoxes boxes;
UserMessages* installed = nullptr;

} // namespace

UserMessages& UserMessages::current() {
    return installed ? *installed : boxes;
}

void UserMessages::install(UserMessages* messages) {
    installed = messages;
}
