// Scan files: import and export by extension, Photoneo PLY, recordings.
// Every function releases the GIL for the file work.
#include "bindings.h"
#include "errors.h"

#include <tavrin/Files.h>
#include <tavrin/pho_ply_io/PointCloud.h>

#include <zelk/Scan.h>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

namespace tavrin_python {
namespace {

using Path = std::filesystem::path;

// The PLY reader throws std::runtime_error for content it refuses (a face
// with more than three corners): bad input, so ValueError.
template <class F>
auto ReadingFile(F&& read) -> decltype(read()) {
  try {
    return read();
  } catch (const std::runtime_error& error) {
    throw py::value_error(error.what());
  }
}

// A new scan filled by `read` (a library import), or tavrin.Error.
template <class F>
std::unique_ptr<zelk::Scan> Import(const std::string& what, const Path& path, F&& read) {
  auto scan = std::make_unique<zelk::Scan>();
  Call call;
  if (!Unlocked([&] { return ReadingFile([&] { return read(*scan, path.string()); }); })) {
    call.Fail(what + ": could not read \"" + path.string() + "\"");
  }
  return scan;
}

void BindEnums(py::module_& m) {
  py::enum_<tavrin::ColorOutput>(m, "ColorOutput", "The texture of a point cloud or PLY file made from a scan.")
      .value("NONE", tavrin::ColorOutput::None)
      .value("INTENSITY", tavrin::ColorOutput::Intensity)
      .value("COLOR", tavrin::ColorOutput::Color);
  py::enum_<tavrin::FileType>(m, "FileType", "Scan file types by extension.")
      .value("PRAW", tavrin::FileType::Praw)
      .value("ZELK", tavrin::FileType::Zelk)
      .value("PLY", tavrin::FileType::Ply)
      .value("OBJ", tavrin::FileType::Obj)
      .value("DAE", tavrin::FileType::Dae)
      .value("STL", tavrin::FileType::Stl)
      .value("FBX", tavrin::FileType::Fbx)
      .value("BVH", tavrin::FileType::Bvh)
      .value("JPG", tavrin::FileType::Jpg)
      .value("PNG", tavrin::FileType::Png)
      .value("GIF", tavrin::FileType::Gif)
      .value("BMP", tavrin::FileType::Bmp)
      .value("EXR", tavrin::FileType::Exr);
}

}  // namespace

tavrin::ColorOutput ChooseTexture(const py::handle& value, const zelk::Scan& scan) {
  if (!py::isinstance<py::str>(value)) {
    return Choose<tavrin::ColorOutput>(value, {}, "texture");  // the enumeration itself
  }
  const std::string text = value.cast<std::string>();
  if (text == "auto") {
    if (scan.HasColors()) return tavrin::ColorOutput::Color;
    if (scan.HasIntensities()) return tavrin::ColorOutput::Intensity;
    return tavrin::ColorOutput::None;
  }
  if (text == "none") return tavrin::ColorOutput::None;
  if (text == "intensity") return tavrin::ColorOutput::Intensity;
  if (text == "color") return tavrin::ColorOutput::Color;
  throw py::value_error("texture must be one of 'auto', 'none', 'intensity', 'color', not '" + text + "'");
}

void BindFiles(py::module_& m) {
  BindEnums(m);
  m.def(
      "file_type",
      [](const Path& path) { return tavrin::GetFileType(path.string()); }, py::arg("path"),
      "The FileType the extension names (case-insensitive), or None.");
  m.def(
      "is_photoneo_ply",
      [](const Path& path) { return Unlocked([&] { return tavrin::IsPhotoneoPly(path.string()); }); },
      py::arg("path"), "True for a .ply whose third line is 'obj_info Photoneo PLY PointCloud ...'.");
  m.def(
      "import_scan",
      [](const Path& path) { return Import("import_scan", path, tavrin::ImportScan); }, py::arg("path"),
      "A new Scan read from any supported file: Photoneo PLY, .praw (played as a file camera), .zelk, other "
      "programs' PLY, OBJ, STL, DAE, FBX.");
  m.def(
      "import_pho_ply",
      [](const Path& path) {
        return Import("import_pho_ply", path,
                      [](zelk::Scan& scan, const std::string& file) { return tavrin::ImportPhoPly(file, scan); });
      },
      py::arg("path"), "A new Scan read from a Photoneo PLY file.");
  m.def(
      "import_praw",
      [](const Path& path) { return Import("import_praw", path, tavrin::ImportPraw); }, py::arg("path"),
      "A new Scan captured from a .praw recording played as a file camera of its own.");
  m.def(
      "read_pho_ply",
      [](const Path& path) {
        Call call;
        auto cloud = Unlocked(
            [&] { return ReadingFile([&] { return std::make_shared<pho_ply_io::PointCloud>(path.string()); }); });
        // The reader reports a file it cannot read by an empty cloud alone.
        if (cloud->points.empty()) call.Fail("read_pho_ply: no point cloud read from \"" + path.string() + "\"");
        return cloud;
      },
      py::arg("path"), "A PhoPointCloud read from a PLY file, its grids as NumPy arrays.");
  m.def(
      "export_pho_ply",
      [](const Path& path, const zelk::Scan& scan, const py::object& texture) {
        const tavrin::ColorOutput colors = ChooseTexture(texture, scan);
        Call call;
        if (!Unlocked([&] { return tavrin::ExportPhoPly(path.string(), scan, colors); })) {
          call.Fail("export_pho_ply: could not write \"" + path.string() + "\"");
        }
      },
      py::arg("path"), py::arg("scan"), py::arg("texture"),
      "Writes the scan (which needs a space) as a binary Photoneo PLY; replaces `path`.");
  m.def(
      "export_scan",
      [](const Path& path, const zelk::Scan& scan, const py::object& texture, bool unordered, bool ascii) {
        tavrin::ExportOptions options;
        options.colorOutput = ChooseTexture(texture, scan);
        options.unordered = unordered;
        options.ascii = ascii;
        Call call;
        if (!Unlocked([&] { return tavrin::ExportScan(path.string(), scan, options); })) {
          call.Fail("export_scan: could not write \"" + path.string() + "\"");
        }
      },
      py::arg("path"), py::arg("scan"), py::arg("texture") = "auto", py::kw_only(), py::arg("unordered") = false,
      py::arg("ascii") = false,
      "Writes the scan as its extension names: .ply (Photoneo PLY; `unordered`: a plain PLY of the measured "
      "points; `ascii`) or .zelk (exact); replaces `path`.");
}

}  // namespace tavrin_python
