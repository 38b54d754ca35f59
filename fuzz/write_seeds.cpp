// Writes the seed files of the fuzz corpora (tests/data/fuzz/<corpus>/) with
// the system's own writers. The files are committed; run this after a format
// change and commit what changes:
//   build/<dir>/fuzz/tavrin_write_fuzz_seeds tests/data/fuzz
// Crash inputs found by fuzzing ("regression-*") are left alone.
#include "files/FilesTestSupport.h"
#include "support/PlyBuilder.h"

#include <PrawFile.h>
#include <PrawLayout.h>

#include <zelk/Exporter.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <sstream>

namespace {

using tavrin_test::BuildPly;
using tavrin_test::PlyContent;
using tavrin_test::PlyEncoding;

std::filesystem::path& Root() {
  static std::filesystem::path root;
  return root;
}

// Every failure is fatal: a corpus half rewritten is worse than none.
void Check(bool ok, const std::string& what) {
  if (ok) return;
  std::fprintf(stderr, "tavrin_write_fuzz_seeds: %s\n", what.c_str());
  std::exit(1);
}

void Write(const std::string& corpus, const std::string& name, const std::string& bytes) {
  const std::filesystem::path dir = Root() / corpus;
  std::filesystem::create_directories(dir);
  std::ofstream out(dir / name, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  Check(out.good(), "cannot write " + (dir / name).string());
}

// PLY files for both the Photoneo reader and the bare RPly interface.
void WritePlySeeds() {
  const std::string target = "ply";
  const struct {
    PlyEncoding encoding;
    const char* suffix;
  } kEncodings[] = {{PlyEncoding::Ascii, "ascii"},
                    {PlyEncoding::BinaryLittleEndian, "binary-le"},
                    {PlyEncoding::BinaryBigEndian, "binary-be"}};
  PlyContent plain;
  plain.elements.push_back(tavrin_test::SampleVertices(5, false, false));
  PlyContent faces;
  faces.headerLines = {files_test::IdentificationLine(2, 2)};
  faces.elements.push_back(tavrin_test::SampleVertices(4, false, true));
  faces.elements.push_back({"face", {{"int", "vertex_indices", "uchar"}}, {{3, 0, 1, 2}, {3, 1, 2, 3}}});
  for (const auto& e : kEncodings) {
    const std::string suffix = std::string(e.suffix) + ".ply";
    Write(target, "valid-photoneo-3x2-" + suffix, BuildPly(files_test::PhotoneoContent(3, 2), e.encoding));
    Write(target, "valid-plain-vertices-" + suffix, BuildPly(plain, e.encoding));
    Write(target, "valid-faces-" + suffix, BuildPly(faces, e.encoding));
  }
  Write(target, "valid-photoneo-2x2-crlf-ascii.ply",
        BuildPly(files_test::PhotoneoContent(2, 2), PlyEncoding::Ascii, "\r\n"));
  Write(target, "valid-photoneo-2x2-crlf-binary-le.ply",
        BuildPly(files_test::PhotoneoContent(2, 2), PlyEncoding::BinaryLittleEndian, "\r\n"));

  const std::string binary = BuildPly(files_test::PhotoneoContent(3, 2), PlyEncoding::BinaryLittleEndian);
  Write(target, "broken-truncated-data.ply", binary.substr(0, binary.size() - 7));
  Write(target, "broken-truncated-header.ply", binary.substr(0, binary.find("end_header") + 3));
  Write(target, "broken-wrong-magic.ply", "PLY" + binary.substr(3));
  Write(target, "broken-unknown-format.ply", "ply\nformat binary_middle_endian 1.0\nelement vertex 0\nend_header\n");

  // Either outcome is right for these depending on the reader: the
  // Photoneo reader wants vertices and triangles, RPly does not.
  Write(target, "header-only.ply", "ply\nformat ascii 1.0\nend_header\n");
  // RPly callbacks asked to stop early (the trailing 0xAB byte, see
  // fuzz/RplyTarget.h).
  Write(target, "stop-early-binary-le.ply", binary + '\xAB');
  PlyContent quad = faces;
  quad.elements.back().rows = {{4, 0, 1, 2, 3}};
  Write(target, "quad-face-ascii.ply", BuildPly(quad, PlyEncoding::Ascii));
  // Every scalar type, as values and as list lengths, with duplicate names.
  PlyContent types;
  types.headerLines = {"comment every type", "obj_info (Width = 2; Height = 1)"};
  types.elements.push_back({"mixed",
                            {{"char", "a", ""}, {"uchar", "b", ""}, {"short", "c", ""}, {"ushort", "d", ""},
                             {"int", "e", ""}, {"uint", "f", ""}, {"float", "g", ""}, {"double", "h", ""},
                             {"int8", "a", ""}, {"float32", "l", "ushort"}, {"double", "m", "uint"}},
                            {{-128, 255, -32768, 65535, -2147483648.0, 4294967295.0, 1.5, -2.25, 127, 2, 0.5, 1e30,
                              0},
                             {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 7}}});
  types.elements.push_back({"vertex", {{"float", "x", ""}, {"float", "y", ""}, {"float", "z", ""}}, {{1, 2, 3}}});
  types.elements.push_back({"vertex", {{"uchar", "x", ""}}, {{9}}});
  // RPly reads them; the Photoneo reader refuses the second vertex element.
  for (const auto& e : kEncodings) {
    Write(target, std::string("types-every-type-") + e.suffix + ".ply", BuildPly(types, e.encoding));
  }
}

void WriteObjInfoSeeds() {
  const char* const kTexts[][2] = {
      {"valid-photoneo.txt", "Photoneo PLY PointCloud ( Width = 2064; Height = 1544)"},
      {"valid-no-spaces.txt", "(Width=4;Height=3)"},
      {"valid-empty-item.txt", "(Width = 4; ; Height = 3)"},
      {"valid-nested.txt", "((a) = (b); c = d))"},
      {"valid-tabs.txt", "(\tWidth = 4\t; Height =\t3; Other = x)"},
      {"broken-no-equals.txt", "(Width 4; Height = 3)"},
      {"broken-unbalanced.txt", "Photoneo PLY PointCloud ( Width = 4; Height = 3"},
      {"broken-reversed.txt", ")("},
  };
  for (const auto& text : kTexts) Write("obj_info", text[0], text[1]);
}

std::string Encoded(const zelk::Exporter& exporter) {
  const std::vector<char> bytes = exporter.Encode();
  return std::string(bytes.begin(), bytes.end());
}

void WriteZelkSeeds() {
  zelk::Exporter none;
  zelk::Exporter one;
  one.AddScan(files_test::SampleScan());
  zelk::Exporter two;
  two.AddScan(files_test::SampleScan());
  two.AddScan(zelk::Scan());
  Write("zelk", "valid-no-scans.zelk", Encoded(none));
  Write("zelk", "valid-one-scan.zelk", Encoded(one));
  Write("zelk", "valid-two-scans.zelk", Encoded(two));
  const std::string bytes = Encoded(one);
  Write("zelk", "broken-truncated.zelk", bytes.substr(0, bytes.size() - 1));
  Write("zelk", "broken-trailing-byte.zelk", bytes + '\0');
  Write("zelk", "broken-wrong-magic.zelk", "ZELKSCAM" + bytes.substr(8));

  // Well-formed files that break a rule of the scan model: a well-known
  // property of another element type (with the bytes to match) and grids far
  // larger than their points; the largest sparse grid is still a scan.
  const auto edited = [&bytes](const std::function<void(tavrin_fuzz::ZelkScanLayout&)>& edit) {
    return files_test::EditedZelk(bytes, edit);
  };
  const auto retyped = [&edited](const std::string& name, zelk::DataType type) {
    return edited([&](tavrin_fuzz::ZelkScanLayout& scan) { scan.Retype(name, type); });
  };
  Write("zelk", "broken-colors-as-color3b.zelk", retyped(zelk::PointCloud::COLORS, zelk::DataType::Color3b));
  Write("zelk", "broken-colors-as-uint32.zelk", retyped(zelk::PointCloud::COLORS, zelk::DataType::UInt32));
  Write("zelk", "broken-normals-as-float.zelk", retyped(zelk::PointCloud::NORMALS, zelk::DataType::Float));
  Write("zelk", "broken-intensities-as-color3f.zelk",
        retyped(zelk::PointCloud::INTENSITIES, zelk::DataType::Color3f));
  const auto grid = [&edited](std::uint32_t width, std::uint32_t height) {
    return edited([&](tavrin_fuzz::ZelkScanLayout& scan) {
      scan.width = width;
      scan.height = height;
    });
  };
  Write("zelk", "broken-grid-16384x16384.zelk", grid(16384, 16384));
  Write("zelk", "broken-grid-6000x6000.zelk", grid(6000, 6000));
  Write("zelk", "broken-grid-4x2147483647.zelk", grid(4, 0x7FFFFFFF));
  Write("zelk", "broken-grid-2048x2049.zelk", grid(2048, 2049));
  Write("zelk", "valid-grid-2048x2048.zelk", grid(2048, 2048));
}

pho::sim::PrawRecording SampleRecording(bool allMaps) {
  namespace api = pho::api;
  auto frame = std::make_shared<api::Frame>();
  const api::PhoXiSize size(4, 3);
  frame->PointCloud.Resize(size);
  for (int y = 0; y < size.Height; ++y) {
    for (int x = 0; x < size.Width; ++x) {
      frame->PointCloud.At(y, x) = api::Point3_32f(static_cast<float>(x), static_cast<float>(y), 500.0f);
    }
  }
  frame->PointCloud.At(1, 1) = api::Point3_32f(std::numeric_limits<float>::quiet_NaN(), 0.0f, 0.0f);
  frame->PointCloud.At(2, 3) = api::Point3_32f(0.0f, 0.0f, 0.0f);
  if (allMaps) {
    frame->NormalMap.Resize(size);
    frame->DepthMap.Resize(size);
    frame->ConfidenceMap.Resize(size);
    frame->Texture.Resize(size);
    frame->TextureRGB.Resize(size);
    frame->EventMap.Resize(size);
    frame->ColorCameraImage.Resize(api::PhoXiSize(2, 2));
    frame->NormalMap.At(0, 0) = api::Point3_32f(0.0f, 0.0f, -1.0f);
    frame->Texture.At(0, 1) = 0.5f;
    frame->TextureRGB.At(2, 2) = api::ColorRGB_16(1023, 512, 0);
  }
  frame->Successful = true;
  frame->Info.FrameIndex = 3;
  frame->Info.FrameTimestamp = 1234.5;
  pho::sim::PrawRecording recording;
  recording.deviceName = "seed-name";
  recording.hwIdentification = "SEED";
  recording.fullResolution = api::PhoXiSize(1680, 1200);
  recording.texture = allMaps ? pho::sim::TextureKind::Colour : pho::sim::TextureKind::Grey;
  recording.calibration.CameraMatrix.Resize(api::PhoXiSize(3, 3));
  recording.calibration.CameraMatrix.At(0, 0) = 1800.0;
  recording.calibration.CameraMatrix.At(1, 1) = 1800.0;
  recording.calibration.CameraMatrix.At(0, 2) = 840.0;
  recording.calibration.CameraMatrix.At(1, 2) = 600.0;
  recording.calibration.CameraMatrix.At(2, 2) = 1.0;
  recording.calibration.DistortionCoefficients = {0.1, -0.2, 0.0, 0.0, 0.05};
  recording.frame = frame;
  return recording;
}

std::string PrawBytes(const pho::sim::PrawRecording& recording) {
  const std::filesystem::path path = std::filesystem::temp_directory_path() / "tavrin_fuzz_seed.praw";
  std::string error;
  Check(pho::sim::WritePraw(path.string(), recording, error), error);
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::filesystem::remove(path);
  return bytes;
}

void WritePrawSeeds() {
  const std::string target = "praw";
  const std::string full = PrawBytes(SampleRecording(true));
  Write(target, "valid-4x3-all-maps.praw", full);
  Write(target, "valid-4x3-point-cloud.praw", PrawBytes(SampleRecording(false)));
  pho::sim::PrawRecording empty = SampleRecording(false);
  empty.frame->PointCloud.Clear();
  empty.calibration = pho::api::PhoXiCalibrationSettings();
  Write(target, "valid-no-maps.praw", PrawBytes(empty));
  Write(target, "broken-truncated.praw", full.substr(0, full.size() - 9));
  Write(target, "broken-trailing-byte.praw", full + 'x');
  Write(target, "broken-wrong-magic.praw", "PHOXRAX" + full.substr(7));
  std::string version = full;
  version[8] = 2;
  Write(target, "broken-version-2.praw", version);

  // Recordings that read but that PhoXi Control does not play: calibrations
  // no device reports (with at least five coefficients, so that only the
  // matrix is wrong) and a sensor of no device.
  const auto edited = [&full](const std::function<void(tavrin_fuzz::PrawLayout&)>& edit) {
    std::optional<tavrin_fuzz::PrawLayout> layout = tavrin_fuzz::ParsePraw(full);
    Check(layout.has_value(), "the recording's layout does not parse");
    edit(*layout);
    return tavrin_fuzz::EncodePraw(*layout);
  };
  for (const auto& shape : {std::make_pair(0, 0), std::make_pair(1, 1), std::make_pair(2, 2), std::make_pair(1, 3),
                            std::make_pair(3, 1)}) {
    Write(target, "unplayable-matrix-" + std::to_string(shape.first) + "x" + std::to_string(shape.second) + ".praw",
          edited([&](tavrin_fuzz::PrawLayout& l) { l.ReshapeMatrix(shape.first, shape.second); }));
  }
  Write(target, "unplayable-distortion-3.praw", edited([](tavrin_fuzz::PrawLayout& l) { l.SetDistortionCount(3); }));
  Write(target, "unplayable-sensor-2x2.praw", edited([](tavrin_fuzz::PrawLayout& l) {
          l.fullWidth = 2;
          l.fullHeight = 2;
        }));
}

std::string SpaceBytes(const utils::BasisDefinition& definition) {
  std::ostringstream out;
  definition.WriteBinary(out);
  return out.str();
}

void WriteSpaceSeeds() {
  const std::string target = "space_binary";
  utils::SpaceDefinition space;
  Write(target, "valid-default-space.bin", SpaceBytes(space));
  space.id = std::string(300, 'i');
  space.units = utils::Units::Inches;
  space.category = utils::SpaceCategory::Marker;
  space.up = utils::Axis::NegativeZ;
  Write(target, "valid-id-300-bytes.bin", SpaceBytes(space));
  space.id = std::string("zero\0inside", 11);
  Write(target, "valid-id-with-zero-byte.bin", SpaceBytes(space));
  // Older layouts: basis version 0 (no id), space version 0 (id after the
  // axes, no category) and 1 (no category).
  Write(target, "valid-basis-v0-space-v0.bin", std::string("\x00\x01\x02\x01\x00\x03\x00\x00\x00old\x04", 13));
  Write(target, "valid-basis-v1-space-v1.bin", std::string("\x01\x02\x00\x00\x00id\x01\x02\x01\x01\x04", 12));
  Write(target, "valid-units-without-row.bin", std::string("\x01\x00\x00\x00\x00\x01\x02\x01\x02\x0a\x07", 11));
  Write(target, "broken-basis-version-2.bin", std::string("\x02\x06\x00\x00\x00" "custom\x01\x02\x01\x02\x04\x00", 17));
  Write(target, "broken-space-version-3.bin", std::string("\x01\x00\x00\x00\x00\x01\x02\x01\x03\x04\x00", 11));
  Write(target, "broken-id-longer-than-data.bin", std::string("\x01\xff\xff\xff\x7f" "abc", 8));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: tavrin_write_fuzz_seeds CORPUS_ROOT (tests/data/fuzz)\n");
    return 2;
  }
  Root() = argv[1];
  WritePlySeeds();
  WriteObjInfoSeeds();
  WriteZelkSeeds();
  WritePrawSeeds();
  WriteSpaceSeeds();
  return 0;
}
