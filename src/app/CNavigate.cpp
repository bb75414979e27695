#include "app/CNavigate.h"

#include "views/CubicView.h"

#include <cmath>
#include <numbers>

CNavigate::CNavigate() : CToolUI(false, 8, 0, 0, L"Navigate") {}

void CNavigate::press(CubicView&, double x, double y) {
    dragging_ = true;
    lastX_ = x;
    lastY_ = y;
}

void CNavigate::drag(CubicView& view, double x, double y) {
    if (!dragging_) {
        return;
    }
    // The angle one window pixel spans at the centre of the view: the scene follows the
    // mouse whatever the field of view.
    const CubicDrawable d = view.drawable();
    const double focal =
        d.viewWidth() / 2.0 / std::tan(d.angles().fieldOfView * std::numbers::pi / 360.0);
    const double degreesPerPixel = 180.0 / std::numbers::pi / focal;
    view.turnBy(-(x - lastX_) * degreesPerPixel, (y - lastY_) * degreesPerPixel);
    lastX_ = x;
    lastY_ = y;
}

void CNavigate::release() {
    dragging_ = false;
}

void CNavigate::wheel(CubicView& view, int angleDelta) {
    view.wheel(angleDelta);
}

void CNavigate::key(CubicView& view, int right, int up) {
    view.turnBy(right * keyStep, up * keyStep);
}
