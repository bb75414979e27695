#include "app/QtText.h"

#include "core/Status.h"

QString loadQString(int id) {
    return toQString(TQL::loadString(id));
}

QString statusQText(int status) {
    return toQString(statusText(status));
}
