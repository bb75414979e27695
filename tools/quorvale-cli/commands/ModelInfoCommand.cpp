// quorvale-cli model-info FILE.dxf [--obj OUT.obj]: reads a model as the new-document
// command would and prints its layers, materials, meshes and bounds; --obj writes the
// triangles (with their normals) as a Wavefront OBJ file for inspection.

#include "CliSupport.h"
#include "Command.h"
#include "core/StringUtils.h"
#include "interchange/dxf/DXFReader.h"
#include "interchange/render/SmoothModelImp.h"

#include <cstdio>
#include <map>

namespace {

Status writeObj(const SmoothModelImp& model, const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "w");
    if (!f) {
        return status::writeFailed;
    }
    std::fprintf(f, "# quorvale-cli model-info\n");
    std::size_t base = 1;
    for (const auto& mesh : model.meshes()) {
        std::fprintf(f, "g %s\nusemtl %s\n", utf8(mesh.layer.value()).c_str(),
                     utf8(mesh.material->name.value()).c_str());
        for (const auto& v : mesh.vertices) {
            const Point<3>& p = mesh.points[v.point];
            std::fprintf(f, "v %.9g %.9g %.9g\nvn %.6f %.6f %.6f\n", p[0], p[1], p[2], v.normal[0],
                         v.normal[1], v.normal[2]);
        }
        for (const auto& t : mesh.triangles) {
            const std::size_t a = base + t.vertex[0], b = base + t.vertex[1],
                              c = base + t.vertex[2];
            std::fprintf(f, "f %zu//%zu %zu//%zu %zu//%zu\n", a, a, b, b, c, c);
        }
        base += mesh.vertices.size();
    }
    return std::fclose(f) == 0 ? status::ok : status::writeFailed;
}

int run(const std::vector<std::string>& args) {
    cli::Arguments a(args, {"obj"});
    if (!a.ok()) {
        return cli::usageError("model-info", a.error());
    }
    if (a.positional().size() != 1) {
        return cli::usageError("model-info", "expected one model file");
    }
    auto model = TQL::makeHandle<SmoothModelImp>();
    std::wstring error;
    DXFReadInfo info;
    const Status s = readDXF(getWCS(a.positional()[0]), *model, error, {}, &info);
    if (s != status::ok) {
        std::fprintf(stderr, "quorvale-cli model-info: %s\n", utf8(error).c_str());
        return cli::exitFailed;
    }
    std::printf("units\t%g m\n", info.metresPerUnit);
    for (const auto& l : info.layers) {
        std::printf("layer\t%s\n", utf8(l).c_str());
    }
    std::map<const SmoothModelImp::Material*, std::size_t> triangles;
    for (const auto& mesh : model->meshes()) {
        triangles[mesh.material] += mesh.triangles.size();
    }
    for (const auto* m : model->materialsInOrder()) {
        std::printf("material\t%u\t%s\t%zu triangles\n", m->order, utf8(m->name.value()).c_str(),
                    triangles[m]);
    }
    const Extent<3> box = model->bounds();
    std::printf("meshes\t%zu\ntriangles\t%zu\nfaces\t%zu\nskipped entities\t%zu\n",
                model->meshes().size(), model->triangleCount(), info.faces, info.skipped);
    if (!box.degenerate()) {
        std::printf("bounds\t%g %g %g\t%g %g %g\n", box.lo()[0], box.lo()[1], box.lo()[2],
                    box.hi()[0], box.hi()[1], box.hi()[2]);
    }
    if (const auto obj = a.value("obj")) {
        const Status w = cli::writeAtomically(
            *obj, [&](const std::string& temp) { return writeObj(*model, temp); });
        if (w != status::ok) {
            return cli::operationFailed("model-info", *obj, w);
        }
    }
    return cli::exitOk;
}

const cli::Command command{"model-info", "read a DXF model and print what it holds",
                           "quorvale-cli model-info FILE.dxf [--obj OUT.obj]", run};
const cli::CommandRegistration registration(command);

} // namespace
