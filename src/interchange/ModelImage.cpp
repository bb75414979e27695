#include "interchange/ModelImage.h"

#include "core/Reporter.h"
#include "core/TqlError.h"
#include "image/DocumentBuffer.h"
#include "image/ZmapDocument.h"
#include "interchange/dxf/DXFReader.h"
#include "interchange/model/DXFColours.h"
#include "interchange/model/ExportError.h"
#include "interchange/render/SmoothModelImp.h"
#include "views/cameras/QuorvaleCamera.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

namespace {

constexpr double eyeHeightMetres = 1.6;
/// A fitted view looks from the south-south-east: the compass bearing from the model to
/// the eye.
constexpr double fitBearing = 150;
/// A fitted perspective holds the model's bounding sphere within this angle either side
/// of the view; the window is then narrowed to what is drawn.
constexpr double fitHalfAngle = 28;
/// A fitted view looks down on the model at an angle between these (degrees above the
/// horizon): steepest on a flat drawing, so that a site plan is seen as a plan and not
/// edge on, and lowest on a tall one, so that a tower is seen from the side.
constexpr double fitSteepest = 45;
constexpr double fitLowest = 12;
/// The margin around a fitted model, as a fraction of its extent in the window.
constexpr double fitMargin = 0.04;
/// The nearest depth a panorama or a placed eye draws, in metres.
constexpr double nearestMetres = 0.01;

/// X right, Y up (as near +z as it can be), Z forward.
struct Axes {
    Vector<3> x, y, z;
};

Axes lookingAlong(const Vector<3>& forward) {
    const Vector<3> z = forward.unit();
    Vector<3> up(0, 0, 1);
    if (cross(z, up).lengthSquared() < 1e-12) {
        up = Vector<3>(0, 1, 0);
    }
    const Vector<3> x = cross(z, up).unit();
    return {x, cross(x, z), z};
}

/// The horizontal unit vector of a compass bearing.
Vector<3> bearing(double degrees) {
    const Angle a = Angle::degrees(degrees);
    return Vector<3>(a.sin(), a.cos(), 0);
}

/// A window of the image's proportions around the box [lo, hi] (x right, y up), with a
/// margin: written as windowLo (top left) and windowHi (bottom right) at depth `w`.
void fitWindow(ViewParams& view, double lox, double hix, double loy, double hiy, std::int32_t width,
               std::int32_t height, double w) {
    const double across = std::max(width - 1, 1);
    const double down = std::max(height - 1, 1);
    const double spanX = std::max(hix - lox, 1e-12) * (1 + 2 * fitMargin);
    const double spanY = std::max(hiy - loy, 1e-12) * (1 + 2 * fitMargin);
    const double step = std::max(spanX / across, spanY / down);
    const double cx = (lox + hix) / 2;
    const double cy = (loy + hiy) / 2;
    view.windowLo = Point<3>(cx - step * across / 2, cy + step * down / 2, w);
    view.windowHi = Point<3>(cx + step * across / 2, cy - step * down / 2, w);
}

/// The smallest and largest depth of the box's corners along `z` from `eye`.
std::pair<double, double> depthRange(const Extent<3>& box, const Point<3>& eye,
                                     const Vector<3>& z) {
    double lo = INFINITY, hi = -INFINITY;
    for (int i = 0; i < 8; ++i) {
        const double d = dot(box.corner(i) - eye, z);
        lo = std::min(lo, d);
        hi = std::max(hi, d);
    }
    return {lo, hi};
}

/// The angle in degrees above the horizon from which a fitted view looks down on `box`:
/// fitSteepest for a flat box, falling towards fitLowest as the box grows taller than it
/// is wide.
double fitElevation(const Extent<3>& box) {
    const Vector<3> size = box.size();
    const double across = std::hypot(size.x(), size.y());
    const double tallness = size.z() / std::max(across, 1e-12);
    return fitLowest + (fitSteepest - fitLowest) / (1 + 2 * tallness);
}

/// The unit vector from a fitted model towards the eye.
Vector<3> fitDirection(const Extent<3>& box) {
    const Angle e = Angle::degrees(fitElevation(box));
    const Vector<3> away = bearing(fitBearing);
    return Vector<3>(away.x() * e.cos(), away.y() * e.cos(), e.sin());
}

/// Calls `f` with every point the model draws through, or, for a model that doesn't list
/// them, the corners of its bounds.
template <class F> void forEachFitPoint(const Model& model, const Extent<3>& box, F f) {
    if (const auto* smooth = dynamic_cast<const MeshModel*>(&model)) {
        for (const MeshModel::Mesh& mesh : smooth->meshes()) {
            for (const Point<3>& p : mesh.points) {
                f(p);
            }
        }
        return;
    }
    for (int i = 0; i < 8; ++i) {
        f(box.corner(i));
    }
}

/// Turns the progress of one face's rendering into that of the whole panorama.
class FaceProgress : public Reporter {
public:
    FaceProgress(Reporter* whole, unsigned face) : whole_(whole), face_(face) {}
    bool report(unsigned total, unsigned done, double fraction) override {
        return whole_ && whole_->report(6, face_, total ? (done + fraction) / total : 0);
    }

private:
    Reporter* whole_;
    unsigned face_;
};

} // namespace

double modelMetresPerUnit(const Model& model) {
    if (model.metresPerUnit() > 0) {
        return model.metresPerUnit();
    }
    const Vector<3> size = model.bounds().size();
    return std::max({size.x(), size.y(), size.z()}) > 2000 ? 0.001 : 1.0;
}

ViewParams modelViewParams(const Model& model, const ModelImageSettings& settings,
                           std::int32_t width, std::int32_t height) {
    const Extent<3> box =
        model.bounds().degenerate() ? Extent<3>(Point<3>::m_origin) : model.bounds();
    const double unit = modelMetresPerUnit(model);
    const double nearest = nearestMetres / unit;
    const double radius = std::max(box.size().length() / 2, nearest);
    const Point<3> centre = box.centre();
    const double eyeZ = box.lo().z() + eyeHeightMetres / unit;

    ViewParams view;
    view.unitCode = 4;
    view.modelScale = unit;
    view.angle = 0;
    Point<3> eye = settings.eye;
    Point<3> target = settings.target;
    switch (settings.view) {
    case ModelImageSettings::View::perspective: {
        view.viewCode = ViewParams::perspectiveCode;
        view.projection = 0;
        if (settings.fit) {
            // Far enough that the bounding sphere lies within the half angle.
            const double distance = radius / std::sin(Angle::degrees(fitHalfAngle).radians());
            eye = centre + fitDirection(box) * distance;
            target = centre;
        }
        const Axes a = lookingAlong(target - eye);
        if (settings.fit) {
            // The window around what is drawn: the eye's distance keeps all in front.
            double lox = INFINITY, hix = -INFINITY, loy = INFINITY, hiy = -INFINITY;
            forEachFitPoint(model, box, [&](const Point<3>& p) {
                const Vector<3> v = p - eye;
                const double depth = dot(v, a.z);
                lox = std::min(lox, dot(v, a.x) / depth);
                hix = std::max(hix, dot(v, a.x) / depth);
                loy = std::min(loy, dot(v, a.y) / depth);
                hiy = std::max(hiy, dot(v, a.y) / depth);
            });
            fitWindow(view, lox, hix, loy, hiy, width, height, 1);
        } else {
            const double t = std::tan(
                Angle::degrees(std::clamp(settings.fieldOfView, 0.1, 179.0)).radians() / 2);
            const double ratio = double(std::max(height - 1, 1)) / std::max(width - 1, 1);
            view.windowLo = Point<3>(-t, t * ratio, 1);
            view.windowHi = Point<3>(t, -t * ratio, 1);
        }
        const auto [lo, hi] = depthRange(box, eye, a.z);
        view.farDepth = std::max(hi * 1.02, 2 * nearest);
        view.nearDepth = std::clamp(lo * 0.98, nearest, view.farDepth / 2);
        view.xAxis = a.x;
        view.yAxis = a.y;
        view.zAxis = a.z;
        break;
    }
    case ModelImageSettings::View::parallel: {
        view.viewCode = ViewParams::parallelCode;
        view.projection = 1;
        Vector<3> forward = target - eye;
        if (settings.fit) {
            forward = -fitDirection(box);
            target = centre;
        }
        const Axes a = lookingAlong(forward);
        // The reference point stands back from the whole model along the view.
        eye = target - a.z * (2 * radius + dot(target - centre, a.z));
        double lox = INFINITY, hix = -INFINITY, loy = INFINITY, hiy = -INFINITY;
        forEachFitPoint(model, box, [&](const Point<3>& p) {
            const Vector<3> v = p - eye;
            lox = std::min(lox, dot(v, a.x));
            hix = std::max(hix, dot(v, a.x));
            loy = std::min(loy, dot(v, a.y));
            hiy = std::max(hiy, dot(v, a.y));
        });
        fitWindow(view, lox, hix, loy, hiy, width, height, 0);
        const auto [lo, hi] = depthRange(box, eye, a.z);
        view.nearDepth = lo - 0.01 * radius;
        view.farDepth = hi + 0.01 * radius;
        view.xAxis = a.x;
        view.yAxis = a.y;
        view.zAxis = a.z;
        view.shear = Vector<3>(0, 0, 1);
        break;
    }
    case ModelImageSettings::View::cubic: {
        view.viewCode = ViewParams::cubicCode;
        view.projection = 0;
        Vector<3> forward(0, 1, 0);
        if (settings.fit) {
            eye = Point<3>(centre.x(), centre.y(), eyeZ);
            target = eye + forward;
        } else {
            forward = Vector<3>(target.x() - eye.x(), target.y() - eye.y(), 0);
            if (forward.lengthSquared() == 0) {
                forward = Vector<3>(0, 1, 0);
            }
        }
        const Axes a = lookingAlong(forward);
        double far = 0;
        for (int i = 0; i < 8; ++i) {
            const Vector<3> v = box.corner(i) - eye;
            far = std::max(
                {far, std::fabs(dot(v, a.x)), std::fabs(dot(v, a.y)), std::fabs(dot(v, a.z))});
        }
        view.nearDepth = nearest;
        view.farDepth = std::max(far * 1.02, 2 * nearest);
        view.windowLo = Point<3>(-1, 1, 1);
        view.windowHi = Point<3>(1, -1, 1);
        view.xAxis = a.x;
        view.yAxis = a.y;
        view.zAxis = a.z;
        break;
    }
    }
    view.eye = eye;
    view.target = target;
    return view;
}

TQL::Handle<LightSet> modelLights(const ModelImageSettings& settings) {
    auto lights = TQL::makeHandle<LightSet>();
    lights->add(
        TQL::makeHandle<AmbientLight>(Point<3>(0.50, 0.53, 0.58), Point<3>(0.22, 0.21, 0.19)));
    lights->add(QuorvaleParallelLight::sun(Angle::degrees(settings.sunAzimuth),
                                           Angle::degrees(settings.sunElevation),
                                           LightColour{0.72, 0.68, 0.60}, settings.shadows));
    return lights;
}

void makeModelImage(Status& status, ZmapDocument& document, const SmoothModelImp& model,
                    const NewImageParams& params, Reporter* progress, std::wstring& errorText) {
    document.clearDocument();
    errorText.clear();
    const ModelImageSettings& settings = params.model;
    const bool cubic = settings.view == ModelImageSettings::View::cubic;
    if (params.width < 2 || params.height < 2 || (cubic && params.width != 6 * params.height)) {
        errorText = cubic
                        ? L"A panorama is six square faces: its width must be six times its height"
                        : L"The image must be at least 2 by 2 pixels";
        status = status::noConversion;
        return;
    }
    if (model.triangleCount() == 0) {
        errorText = L"The model has no faces to draw";
        status = status::noConversion;
        return;
    }
    if ((status = document.setSize(params.width, params.height)) != status::ok) {
        return;
    }
    try {
        document.rgb = TQL::makeHandle<RgbBitmap>(document);
        document.z = TQL::makeHandle<ZBitmap>(document, ZBitmap::noDepth);
        document.mat = TQL::makeHandle<MatBitmap>(document);
        std::vector<MaterialId> ids;
        for (const SmoothModelImp::Material* m : model.materialsInOrder()) {
            ids.push_back(document.addMaterial(m->name.value(), modelMaterialColour(*m), false));
        }
        const ViewParams view = modelViewParams(model, settings, params.width, params.height);
        const TQL::Handle<LightSet> lights = modelLights(settings);
        const UniformTransform<3> identity;
        if (cubic) {
            const std::int32_t n = params.height;
            for (std::int32_t face = 0; face < 6; ++face) {
                const IExtent<2> rectangle(face * n, 0, face * n + n - 1, n - 1);
                const QuorvaleCamera camera(identity, view, params.width, params.height,
                                            model.bounds(), rectangle);
                DocumentBuffer buffer(document, params.background, ids, face * n, n);
                FaceProgress faceProgress(progress, static_cast<unsigned>(face));
                model.render(camera, buffer, *lights, &faceProgress, settings.flat, n, n,
                             settings.section);
            }
            document.rgb->stitchFaces(n);
            document.z->stitchFaces(n);
            document.mat->stitchFaces(n);
        } else {
            const IExtent<2> all(0, 0, params.width - 1, params.height - 1);
            const QuorvaleCamera camera(identity, view, params.width, params.height, model.bounds(),
                                        all);
            DocumentBuffer buffer(document, params.background, ids);
            model.render(camera, buffer, *lights, progress, settings.flat, params.width,
                         params.height, settings.section);
        }
        document.setViewParams(view);
    } catch (const ExportError& e) {
        document.clearDocument();
        errorText = e.reason();
        status = e.reason() == ExportError::abandoned().reason() ? status::stopped
                                                                 : status::noConversion;
        return;
    } catch (const TQL::TqlError& e) {
        document.clearDocument();
        errorText = e.wWhat();
        status = status::noConversion;
        return;
    } catch (const std::bad_alloc&) {
        document.clearDocument();
        status = status::outOfMemory;
        return;
    }
    document.description = params.description;
    document.xResolution = params.xResolution;
    document.yResolution = params.yResolution;
    if ((status = document.allocateChannels()) != status::ok) {
        document.clearDocument();
    }
}

void ModelDocumentCommands::newImage(Status& status, ZmapDocument& document,
                                     const NewImageParams& params) {
    if (params.kind != NewImageKind::model) {
        files_.newImage(status, document, params);
        return;
    }
    const std::wstring& path = params.sourcePath;
    auto model = TQL::makeHandle<SmoothModelImp>();
    std::wstring error;
    DXFReadOptions options;
    options.progress = document.editor.progress();
    DXFReadInfo info;
    status = readDXF(path, *model, error, options, &info);
    if (status == status::ok && model->triangleCount() == 0 && info.lines > 0) {
        // A plan of lines has nothing a depth image can show: say so rather than draw
        // an empty sky.
        error = L"The drawing has lines but no faces: only 3D faces, meshes, solids and "
                L"lines or polylines with a thickness or width can be drawn";
        status = status::noConversion;
        document.clearDocument();
    } else if (status == status::ok) {
        document.editor.tellProgress(messageModelRendering,
                                     commandText(messageModelRendering, {path}));
        makeModelImage(status, document, *model, params, document.editor.progress(), error);
    } else {
        document.clearDocument();
    }
    if (status != status::ok) {
        if (error.empty()) {
            error = statusText(status);
        }
        document.editor.tell(messageModelFailed, commandText(messageModelFailed, {path, error}));
        return;
    }
    document.editor.tellProgress(messageModelRendered, commandText(messageModelRendered, {path}));
}
