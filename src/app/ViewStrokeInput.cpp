#include "app/ViewStrokeInput.h"

#include "app/AppSettings.h"
#include "app/CQuorvaleDoc.h"

#include <QPointingDevice>
#include <QTabletEvent>

#include <algorithm>

ViewStrokeInput::ViewStrokeInput(CQuorvaleDoc& document, PixelAt pixelAt, Changed changed)
    : document_(document), pixelAt_(std::move(pixelAt)), changed_(std::move(changed)) {}

StrokePoint ViewStrokeInput::point(QPointF at, float pressure,
                                   Qt::KeyboardModifiers modifiers) const {
    IPoint<2> pixel;
    pixelAt_(at, pixel);
    StrokePoint point;
    point.x = pixel.x;
    point.y = pixel.y;
    point.pressure = std::clamp(pressure, 0.0f, 1.0f);
    point.flags = (modifiers & Qt::ShiftModifier) ? strokeConstrained : 0u;
    return point;
}

bool ViewStrokeInput::onImage(QPointF at) const {
    IPoint<2> pixel;
    return pixelAt_(at, pixel);
}

bool ViewStrokeInput::press(QPointF at, float pressure, Qt::KeyboardModifiers modifiers,
                            bool eraser) {
    if (!onImage(at) && !document_.strokeOpen()) {
        return false;
    }
    stroking_ = true;
    document_.beginStroke(point(at, pressure, modifiers), eraser);
    if (!document_.strokeRunning()) {
        // Refused, or over at once.
        stroking_ = false;
    }
    changed_();
    return true;
}

bool ViewStrokeInput::move(QPointF at, float pressure, Qt::KeyboardModifiers modifiers) {
    if (!stroking_) {
        return false;
    }
    document_.continueStroke(point(at, pressure, modifiers));
    return true;
}

bool ViewStrokeInput::release() {
    if (!stroking_) {
        return false;
    }
    stroking_ = false;
    document_.endStroke();
    changed_();
    return true;
}

bool ViewStrokeInput::doubleClick() {
    if (!document_.strokeOpen()) {
        return false;
    }
    stroking_ = false;
    document_.closeStroke();
    changed_();
    return true;
}

bool ViewStrokeInput::key(int key) {
    if (!document_.strokeRunning()) {
        return false;
    }
    if (key == Qt::Key_Escape) {
        // Stops the stroke; what it painted stays, and undo takes it back.
        stroking_ = false;
        document_.stopStroke();
        changed_();
        return true;
    }
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
        stroking_ = false;
        document_.closeStroke();
        changed_();
        return true;
    }
    return false;
}

int ViewStrokeInput::tabletPointerKind(const QTabletEvent& event) {
    switch (event.pointerType()) {
    case QPointingDevice::PointerType::Cursor:
        return 0;
    case QPointingDevice::PointerType::Eraser:
        return 2;
    default:
        return 1;
    }
}

void ViewStrokeInput::tablet(QTabletEvent& event, const std::function<void(bool eraser)>& pressed) {
    event.accept();
    const float pressure = static_cast<float>(event.pressure());
    switch (event.type()) {
    case QEvent::TabletPress: {
        if (event.button() != Qt::LeftButton) {
            return;
        }
        const bool eraser = appsettings::TabletEraserEnable.value() != 0 &&
                            tabletPointerKind(event) == appsettings::TabletEraserCursor.value();
        pressed(eraser);
        press(event.position(), pressure, event.modifiers(), eraser);
        return;
    }
    case QEvent::TabletMove:
        move(event.position(), pressure, event.modifiers());
        return;
    case QEvent::TabletRelease:
        if (event.button() == Qt::LeftButton) {
            release();
        }
        return;
    default:
        return;
    }
}
