#pragma once

#include "core/Extent.h"

#include <QRect>
#include <QString>

#include <string>

// Conversions between the engine's types and Qt's, in one place.

inline QString toQString(const std::wstring& text) {
    return QString::fromStdWString(text);
}
inline std::wstring toWString(const QString& text) {
    return text.toStdWString();
}
/// An inclusive image extent as a rectangle; an empty extent gives a null rectangle.
inline QRect toQRect(const IExtent<2>& e) {
    if (e.degenerate()) {
        return QRect();
    }
    return QRect(QPoint(e.lo().x, e.lo().y), QPoint(e.hi().x, e.hi().y));
}
/// The numbered string `id` of the language file.
QString loadQString(int id);
/// The text of a status code.
QString statusQText(int status);
