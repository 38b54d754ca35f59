// pho_ply_io::PointCloud from a file: the Photoneo PLY reader.
//
// The header is analysed completely before any data is read, so every grid is
// allocated once at its final size; RPly then streams each value through one
// callback straight into its cell, guided by a cursor per grid. No per-vertex
// allocation and no intermediate vertex list.
//
// A vertex group whose last component (z, nz, blue) follows its other
// components in the vertex element advances its cursor exactly once per
// vertex, so vertex i lands in cell i. Such a group needs no cursor: its
// components are registered as direct stores into the grid (RPly's
// rply_store.h), which RPly fills in bulk, on several threads when the file
// is large, with the very values the callbacks would store. Any other group
// keeps its callbacks and cursor.
//
// Decisions of this reader:
// - "dm14": only dm0 .. dm13 are registered; a fifteenth coefficient has no
//   slot in the 14-entry distortion list that the conversions expect, so it is
//   read through and ignored.
// - Cells that no vertex reaches (a group whose last component is missing or
//   comes first) are zero: large grids come zeroed from the kernel, small
//   ones are cleared, so a read never hands out stale memory.
// - Only the first "camera" instance is stored; its buffers hold one entry and
//   later instances are read through.
// - Values are converted to integers (colours, face indices) by truncation
//   toward zero, saturating at the integer range; NaN becomes 0 (RPly's
//   ply_truncate_toward_zero, which its stores use too).
// - A header that declares more data than the file can hold, or a grid with
//   more cells than the file has bytes (checked against the file size before
//   anything is allocated), gets no grids: RPly reads through and reports a
//   short file, and the cloud stays default. This keeps a corrupt count from
//   allocating gigabytes.
#include <tavrin/pho_ply_io/PointCloud.h>

#include "files/pho_ply_io/PointCloudRead.h"

#include "convert/HugePageAllocator.h"
#include "files/pho_ply_io/ObjInfo.h"
#include "files/pho_ply_io/ValidPointBands.h"

#include <rply.h>
#include <rply_store.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <type_traits>
#include <vector>

namespace pho_ply_io {
namespace {

constexpr char kIdentification[] = "Photoneo PLY PointCloud";
constexpr std::size_t kIdentificationLength = sizeof(kIdentification) - 1;  // 23

// The user data of the grid callbacks: the grid being filled and the cell
// that the next value goes to.
struct GridCursor {
  cv::Mat matrix;
  int column = 0;
  int row = 0;

  void Advance() {
    if (++column == matrix.cols) {
      column = 0;
      ++row;
    }
  }
};

struct PlyCloser {
  void operator()(p_ply ply) const { ply_close(ply); }
};
using PlyHandle = std::unique_ptr<std::remove_pointer_t<p_ply>, PlyCloser>;

// Everything one read works on; local to the constructor call.
struct ReadState {
  int width = 0;
  int height = 0;
  long faceCount = 0;
  long cameraCount = 0;

  bool points = false;
  bool normals = false;
  bool colors = false;
  bool faces = false;
  bool camera = false;
  bool cameraMatrix = false;
  bool distortion = false;
  bool resolution = false;
  bool binning = false;

  GridCursor pointCursor;
  GridCursor normalCursor;
  GridCursor textureCursor;
  GridCursor faceCursor;
  bool nonTriangular = false;  // set by the face callback, thrown after ply_close

  // Pose: view point, x, y, z axis, each seen through an aliasing header.
  std::vector<glm::vec3> pose[4];
  GridCursor poseCursor[4];

  std::vector<float> cameraMatrixValues = std::vector<float>(9, 0.0f);
  std::vector<float> distortionValues = std::vector<float>(14, 0.0f);
  std::vector<float> resolutionValues = std::vector<float>(2, 0.0f);
  std::vector<float> binningValues = std::vector<float>(2, 0.0f);
  cv::Mat cameraMatrixHeader;
  cv::Mat distortionHeader;
  cv::Mat resolutionHeader;
  cv::Mat binningHeader;
};

int TruncateToInt(double value) {
  const long long v = ply_truncate_toward_zero(value);
  if (v > INT_MAX) return INT_MAX;
  if (v < INT_MIN) return INT_MIN;
  return static_cast<int>(v);
}

// --- read callbacks (RPly signature; 1 continues the read) ---

int Vec3Component(p_ply_argument argument) {
  void* data = nullptr;
  long index = 0;
  ply_get_argument_user_data(argument, &data, &index);
  GridCursor& cursor = *static_cast<GridCursor*>(data);
  if (cursor.row < cursor.matrix.rows) {
    cursor.matrix.ptr<cv::Vec3f>(cursor.row)[cursor.column][static_cast<int>(index)] =
        static_cast<float>(ply_get_argument_value(argument));
    if (index == 2) cursor.Advance();
  }
  return 1;
}

int ColorComponent(p_ply_argument argument) {
  void* data = nullptr;
  long index = 0;
  ply_get_argument_user_data(argument, &data, &index);
  GridCursor& cursor = *static_cast<GridCursor*>(data);
  if (cursor.row < cursor.matrix.rows) {
    cursor.matrix.ptr<cv::Vec3b>(cursor.row)[cursor.column][static_cast<int>(index)] =
        ply_store_uint8_low(ply_get_argument_value(argument));
    if (index == 0) cursor.Advance();  // blue is the last of a colour
  }
  return 1;
}

int MatrixElement(p_ply_argument argument) {
  void* data = nullptr;
  long index = 0;
  ply_get_argument_user_data(argument, &data, &index);
  cv::Mat& matrix = *static_cast<cv::Mat*>(data);
  if (index >= 0 && static_cast<std::size_t>(index) < matrix.total()) {
    reinterpret_cast<float*>(matrix.data)[index] = static_cast<float>(ply_get_argument_value(argument));
  }
  return 1;
}

int FaceIndex(p_ply_argument argument) {
  void* data = nullptr;
  ply_get_argument_user_data(argument, &data, nullptr);
  ReadState& state = *static_cast<ReadState*>(data);
  long valueIndex = 0;
  ply_get_argument_property(argument, nullptr, nullptr, &valueIndex);
  if (valueIndex < 0) {
    return 1;  // the list's length
  }
  if (valueIndex >= 3) {
    // Exceptions cannot cross the C library; stop the read and let the
    // constructor throw once the handle is closed.
    state.nonTriangular = true;
    return 0;
  }
  GridCursor& cursor = state.faceCursor;
  if (cursor.row < cursor.matrix.rows) {
    cursor.matrix.ptr<cv::Vec3i>(cursor.row)[0][static_cast<int>(valueIndex)] =
        TruncateToInt(ply_get_argument_value(argument));
    if (valueIndex == 2) ++cursor.row;
  }
  return 1;
}

// --- header analysis ---

int AtoiClamped(const std::string& text) {
  const long value = std::strtol(text.c_str(), nullptr, 10);
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

void ReadIdentification(p_ply ply, ReadState& state) {
  for (const char* text = ply_get_next_obj_info(ply, nullptr); text != nullptr;
       text = ply_get_next_obj_info(ply, text)) {
    if (std::strncmp(text, kIdentification, kIdentificationLength) != 0) continue;
    for (const auto& [key, value] : ParseObjInfo(text)) {
      if (key == "Width") state.width = AtoiClamped(value);
      if (key == "Height") state.height = AtoiClamped(value);
    }
  }
}

bool HasProperty(p_ply_element element, const char* name) {
  for (p_ply_property property = ply_get_next_property(element, nullptr); property != nullptr;
       property = ply_get_next_property(element, property)) {
    const char* propertyName = nullptr;
    ply_get_property_info(property, &propertyName, nullptr, nullptr, nullptr);
    if (std::strcmp(propertyName, name) == 0) return true;
  }
  return false;
}

std::uint64_t ScalarSize(e_ply_type type) {
  switch (type) {
    case PLY_INT8: case PLY_UINT8: case PLY_CHAR: case PLY_UCHAR: return 1;
    case PLY_INT16: case PLY_UINT16: case PLY_SHORT: case PLY_USHORT: return 2;
    case PLY_FLOAT64: case PLY_DOUBLE: return 8;
    default: return 4;
  }
}

// The fewest data bytes an element's instances can take in the file: each
// scalar (or list length) at its binary size, or as one character plus a
// separator in ASCII (the caller does not know the format; the smaller
// bound of the two is used).
std::uint64_t MinimumDataBytes(p_ply_element element, long instances) {
  std::uint64_t perInstance = 0;
  for (p_ply_property property = ply_get_next_property(element, nullptr); property != nullptr;
       property = ply_get_next_property(element, property)) {
    e_ply_type type = PLY_FLOAT32;
    e_ply_type lengthType = PLY_UINT8;
    ply_get_property_info(property, nullptr, &type, &lengthType, nullptr);
    const std::uint64_t bytes = ScalarSize(type == PLY_LIST ? lengthType : type);
    perInstance += bytes < 2 ? bytes : 2;
  }
  const std::uint64_t count = instances > 0 ? static_cast<std::uint64_t>(instances) : 0;
  if (perInstance != 0 && count > UINT64_MAX / perInstance) return UINT64_MAX;
  return perInstance * count;
}

bool IsCalibrationElement(const std::string& name, ReadState& state, bool*& flag) {
  if (name == "camera_matrix") flag = &state.cameraMatrix;
  else if (name == "distortion_matrix") flag = &state.distortion;
  else if (name == "camera_resolution") flag = &state.resolution;
  else if (name == "frame_binning") flag = &state.binning;
  else return false;
  return true;
}

// Element analysis in header order. Returns the fewest data bytes the header
// declares, for the size check.
std::uint64_t AnalyseElements(p_ply ply, ReadState& state, long& vertexCount) {
  std::uint64_t minimumBytes = 0;
  for (p_ply_element element = ply_get_next_element(ply, nullptr); element != nullptr;
       element = ply_get_next_element(ply, element)) {
    const char* rawName = nullptr;
    long count = 0;
    ply_get_element_info(element, &rawName, &count);
    const std::string name = rawName;
    const bool hasAnyProperty = ply_get_next_property(element, nullptr) != nullptr;
    const std::uint64_t bytes = MinimumDataBytes(element, count);
    minimumBytes = bytes > UINT64_MAX - minimumBytes ? UINT64_MAX : minimumBytes + bytes;
    bool* flag = nullptr;
    if (name == "vertex") {
      vertexCount = count;
      if (static_cast<long long>(count) != static_cast<long long>(state.width) * state.height ||
          state.width <= 0 || state.height <= 0) {
        state.width = 1;
        state.height = count > INT_MAX ? -1 : static_cast<int>(count);
      }
      state.points = state.points || HasProperty(element, "x");
      state.normals = state.normals || HasProperty(element, "nx");
      state.colors = state.colors || HasProperty(element, "red");
    } else if (name == "face") {
      state.faceCount = count;
      state.faces = HasProperty(element, "vertex_indices") || HasProperty(element, "vertex_index");
    } else if (name == "camera") {
      state.cameraCount = count;
      state.camera = count > 0 && hasAnyProperty;
    } else if (IsCalibrationElement(name, state, flag)) {
      *flag = count > 0 && hasAnyProperty;
    }
  }
  return minimumBytes;
}

// --- registration ---

cv::Mat NewGrid(int rows, int cols, int type) { return tavrin::NewZeroMat(rows, cols, type); }

// A vertex group: its property names, the grid channel of each, and the
// one whose value advances the cursor.
struct VertexGroup {
  const char* names[3];
  int channels[3];
  int last;
};

constexpr VertexGroup kPointGroup = {{"x", "y", "z"}, {0, 1, 2}, 2};
constexpr VertexGroup kNormalGroup = {{"nx", "ny", "nz"}, {0, 1, 2}, 2};
constexpr VertexGroup kColorGroup = {{"red", "green", "blue"}, {2, 1, 0}, 2};

// Positions of the group properties in the first "vertex" element, the one
// that registrations reach (the first property of each name); -1 when absent.
struct GroupPositions {
  const VertexGroup* groups[3];
  int positions[3][3];
};

GroupPositions FindGroupPositions(p_ply ply) {
  GroupPositions found{{&kPointGroup, &kNormalGroup, &kColorGroup}, {{-1, -1, -1}, {-1, -1, -1}, {-1, -1, -1}}};
  for (p_ply_element element = ply_get_next_element(ply, nullptr); element != nullptr;
       element = ply_get_next_element(ply, element)) {
    const char* name = nullptr;
    ply_get_element_info(element, &name, nullptr);
    if (std::strcmp(name, "vertex") != 0) continue;
    int position = 0;
    for (p_ply_property property = ply_get_next_property(element, nullptr); property != nullptr;
         property = ply_get_next_property(element, property), ++position) {
      const char* propertyName = nullptr;
      ply_get_property_info(property, &propertyName, nullptr, nullptr, nullptr);
      for (int g = 0; g < 3; ++g) {
        for (int i = 0; i < 3; ++i) {
          int& at = found.positions[g][i];
          if (at < 0 && std::strcmp(propertyName, found.groups[g]->names[i]) == 0) at = position;
        }
      }
    }
    break;
  }
  return found;
}

// Whether the group's cursor advances once per vertex: its last component is
// there and comes after every other component that is.
bool AdvancesOncePerVertex(const GroupPositions& found, const VertexGroup& group) {
  for (int g = 0; g < 3; ++g) {
    if (found.groups[g] != &group) continue;
    const int* positions = found.positions[g];
    const int last = positions[group.last];
    if (last < 0) return false;
    for (int i = 0; i < 3; ++i) {
      if (positions[i] > last) return false;
    }
    return true;
  }
  return false;
}

// Vertex i's components straight into cell i: what the cursor would do for
// such a group, vertices beyond the grid dropped likewise.
void RegisterStores(p_ply ply, const VertexGroup& group, e_ply_store_type type, cv::Mat& grid) {
  const long cells = static_cast<long>(grid.total());
  for (int i = 0; i < 3; ++i) {
    ply_set_read_store(ply, "vertex", group.names[i], type, grid.data + group.channels[i] * grid.elemSize1(),
                       grid.elemSize(), cells);
  }
}

void RegisterGroup(p_ply ply, const GroupPositions& positions, const VertexGroup& group, bool directStores,
                   p_ply_read_cb callback, e_ply_store_type type, GridCursor& cursor) {
  // An empty grid has no memory for stores; its callbacks store nothing.
  if (directStores && !cursor.matrix.empty() && AdvancesOncePerVertex(positions, group)) {
    RegisterStores(ply, group, type, cursor.matrix);
    return;
  }
  for (int i = 0; i < 3; ++i) ply_set_read_cb(ply, "vertex", group.names[i], callback, &cursor, group.channels[i]);
}

void RegisterVec3(p_ply ply, const char* element, const char* const names[3], GridCursor& cursor) {
  for (long i = 0; i < 3; ++i) ply_set_read_cb(ply, element, names[i], Vec3Component, &cursor, i);
}

void RegisterMatrix(p_ply ply, const char* element, const std::vector<const char*>& names, cv::Mat& header) {
  for (std::size_t i = 0; i < names.size(); ++i) {
    ply_set_read_cb(ply, element, names[i], MatrixElement, &header, static_cast<long>(i));
  }
}

void RegisterCallbacks(p_ply ply, ReadState& state, bool directStores) {
  static const char* const kPose[4][3] = {{"view_px", "view_py", "view_pz"},
                                          {"x_axisx", "x_axisy", "x_axisz"},
                                          {"y_axisx", "y_axisy", "y_axisz"},
                                          {"z_axisx", "z_axisy", "z_axisz"}};
  const GroupPositions positions = FindGroupPositions(ply);
  RegisterGroup(ply, positions, kPointGroup, directStores, Vec3Component, PLY_STORE_FLOAT32, state.pointCursor);
  if (state.normals) {
    state.normalCursor.matrix = NewGrid(state.height, state.width, CV_32FC3);
    RegisterGroup(ply, positions, kNormalGroup, directStores, Vec3Component, PLY_STORE_FLOAT32,
                  state.normalCursor);
  }
  if (state.colors) {
    state.textureCursor.matrix = NewGrid(state.height, state.width, CV_8UC3);
    RegisterGroup(ply, positions, kColorGroup, directStores, ColorComponent, PLY_STORE_UINT8_LOW,
                  state.textureCursor);
  }
  if (state.faces) {
    state.faceCursor.matrix = NewGrid(static_cast<int>(state.faceCount), 1, CV_32SC3);
    ply_set_read_cb(ply, "face", "vertex_indices", FaceIndex, &state, 0);
    ply_set_read_cb(ply, "face", "vertex_index", FaceIndex, &state, 0);
  }
  if (state.camera) {
    for (int i = 0; i < 4; ++i) {
      state.pose[i].assign(1, glm::vec3(0.0f));
      state.poseCursor[i].matrix = cv::Mat(1, 1, CV_32FC3, &state.pose[i][0]);
      RegisterVec3(ply, "camera", kPose[i], state.poseCursor[i]);
    }
  }
  state.cameraMatrixHeader = cv::Mat(9, 1, CV_32FC1, state.cameraMatrixValues.data());
  state.distortionHeader = cv::Mat(14, 1, CV_32FC1, state.distortionValues.data());
  state.resolutionHeader = cv::Mat(2, 1, CV_32FC1, state.resolutionValues.data());
  state.binningHeader = cv::Mat(2, 1, CV_32FC1, state.binningValues.data());
  if (state.cameraMatrix) {
    RegisterMatrix(ply, "camera_matrix", {"cm0", "cm1", "cm2", "cm3", "cm4", "cm5", "cm6", "cm7", "cm8"},
                   state.cameraMatrixHeader);
  }
  if (state.distortion) {
    RegisterMatrix(ply, "distortion_matrix",
                   {"dm0", "dm1", "dm2", "dm3", "dm4", "dm5", "dm6", "dm7", "dm8", "dm9", "dm10", "dm11", "dm12",
                    "dm13"},
                   state.distortionHeader);
  }
  if (state.resolution) RegisterMatrix(ply, "camera_resolution", {"width", "height"}, state.resolutionHeader);
  if (state.binning) RegisterMatrix(ply, "frame_binning", {"horizontal", "vertical"}, state.binningHeader);
}

std::uint64_t FileSize(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  return error ? UINT64_MAX : static_cast<std::uint64_t>(size);
}

}  // namespace

void ReadPointCloud(const std::string& path, const ReadOptions& options, PointCloud& cloud) {
  PlyHandle ply(ply_open(path.c_str(), nullptr, 0, nullptr));
  if (!ply || !ply_read_header(ply.get())) return;
  ply_set_read_threads(ply.get(), options.threads, options.minBytesPerThread);
  const unsigned threads = ply_get_read_threads(ply.get());

  ReadState state;
  ReadIdentification(ply.get(), state);
  long vertexCount = 0;
  const std::uint64_t minimumBytes = AnalyseElements(ply.get(), state, vertexCount);
  if (!state.points) return;

  // Every grid cell needs at least one byte of data. The grid is sized by the
  // last "vertex" element, which a hostile header may declare a second time
  // without properties, so its count alone is not backed by any data.
  const std::uint64_t fileSize = FileSize(path);
  const std::uint64_t cells = state.height < 0 ? UINT64_MAX
                                                : static_cast<std::uint64_t>(state.width) *
                                                      static_cast<std::uint64_t>(state.height);
  if (minimumBytes > fileSize || cells > fileSize ||
      static_cast<std::uint64_t>(state.faceCount) > static_cast<std::uint64_t>(INT_MAX)) {
    // The data cannot be there (or cannot be held): read through without
    // targets so that RPly reports a short file, and keep the default cloud.
    ply_read(ply.get());
    return;
  }

  state.pointCursor.matrix = NewGrid(state.height, state.width, CV_32FC3);
  RegisterCallbacks(ply.get(), state, options.directStores);
  const int readOk = ply_read(ply.get());
  ply.reset();
  if (state.nonTriangular) throw std::runtime_error("Non triangular meshes not supported");
  if (!readOk) return;

  // As the constructor from parts would fill it when the calibration is
  // complete, but with the valid points counted on the read's threads.
  cloud.points = state.pointCursor.matrix;
  cloud.texture = state.textureCursor.matrix;
  cloud.normals = state.normalCursor.matrix;
  cloud.faces = state.faceCursor.matrix;
  if (state.camera) {
    cloud.hasView = true;
    cloud.viewPoint = state.pose[0][0];
    cloud.xAxis = state.pose[1][0];
    cloud.yAxis = state.pose[2][0];
    cloud.zAxis = state.pose[3][0];
  }
  if (state.camera && state.cameraMatrix && state.distortion && state.resolution && state.binning) {
    cloud.cameraMatrix = std::move(state.cameraMatrixValues);
    cloud.distortionMatrix = std::move(state.distortionValues);
    cloud.cameraResolution = std::move(state.resolutionValues);
    cloud.frameBinning = std::move(state.binningValues);
    cloud.hasCalibration = true;
  }
  cloud.validPoints = CountValidPointsInBands(cloud, threads);
}

PointCloud::PointCloud(const std::string& path) : PointCloud() { ReadPointCloud(path, ReadOptions(), *this); }

}  // namespace pho_ply_io
