// OBJ, STL, DAE and FBX into an unorganised scan, through Assimp.
#include "ForeignFiles.h"

#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <cctype>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

namespace zelk {
namespace foreign {
namespace {

struct Vertex {
  glm::vec3 position;
  glm::vec3 normal;
  Color3f color;
};

// Positions compare by their bits: -0 and 0 stay apart, as the file has them.
struct PositionKey {
  std::uint32_t bits[3];
  bool operator==(const PositionKey& other) const { return std::memcmp(bits, other.bits, sizeof(bits)) == 0; }
};
struct PositionHash {
  std::size_t operator()(const PositionKey& key) const {
    std::size_t hash = key.bits[0];
    hash = hash * 0x9E3779B97F4A7C15ull + key.bits[1];
    return hash * 0x9E3779B97F4A7C15ull + key.bits[2];
  }
};

std::string UpperExtension(const std::string& path) {
  const std::size_t dot = path.rfind('.');
  std::string extension = dot == std::string::npos ? std::string() : path.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return extension;
}

// Gathers the vertices of a scene, each distinct position once.
class VertexCollector {
public:
  VertexCollector(const aiScene& scene) : scene_(scene) {
    normals_ = colors_ = scene.mNumMeshes > 0;
    std::size_t total = 0;
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
      normals_ = normals_ && scene.mMeshes[m]->HasNormals();
      colors_ = colors_ && scene.mMeshes[m]->HasVertexColors(0);
      total += scene.mMeshes[m]->mNumVertices;
    }
    vertices_.reserve(total);
    seen_.reserve(total);
  }

  // Every mesh where the node hierarchy places it (a mesh used by several
  // nodes once per node); meshes no node uses (point clouds) as they are.
  void CollectScene() {
    std::vector<bool> placed(scene_.mNumMeshes, false);
    if (scene_.mRootNode != nullptr) CollectNode(*scene_.mRootNode, aiMatrix4x4(), placed);
    for (unsigned m = 0; m < scene_.mNumMeshes; ++m) {
      if (!placed[m]) CollectMesh(*scene_.mMeshes[m], aiMatrix4x4());
    }
  }

  const std::vector<Vertex>& Vertices() const { return vertices_; }
  bool Normals() const { return normals_; }
  bool Colors() const { return colors_; }

private:
  void CollectNode(const aiNode& node, const aiMatrix4x4& parent, std::vector<bool>& placed) {
    const aiMatrix4x4 transform = parent * node.mTransformation;
    for (unsigned i = 0; i < node.mNumMeshes; ++i) {
      if (node.mMeshes[i] >= scene_.mNumMeshes) continue;
      placed[node.mMeshes[i]] = true;
      CollectMesh(*scene_.mMeshes[node.mMeshes[i]], transform);
    }
    for (unsigned c = 0; c < node.mNumChildren; ++c) CollectNode(*node.mChildren[c], transform, placed);
  }

  void CollectMesh(const aiMesh& mesh, const aiMatrix4x4& transform) {
    const bool identity = transform.IsIdentity();
    const aiMatrix3x3 rotation(transform);
    for (unsigned i = 0; i < mesh.mNumVertices; ++i) {
      const aiVector3D p = identity ? mesh.mVertices[i] : transform * mesh.mVertices[i];
      Vertex vertex{};
      vertex.position = glm::vec3(p.x, p.y, p.z);
      PositionKey key{};
      std::memcpy(key.bits, &vertex.position, sizeof(key.bits));
      if (!seen_.emplace(key, static_cast<std::uint32_t>(vertices_.size())).second) continue;
      if (normals_) {
        aiVector3D n = identity ? mesh.mNormals[i] : rotation * mesh.mNormals[i];
        if (!identity) n.NormalizeSafe();
        vertex.normal = glm::vec3(n.x, n.y, n.z);
      }
      if (colors_) vertex.color = Color3f(mesh.mColors[0][i].r, mesh.mColors[0][i].g, mesh.mColors[0][i].b);
      vertices_.push_back(vertex);
    }
  }

  const aiScene& scene_;
  bool normals_ = false;
  bool colors_ = false;
  std::vector<Vertex> vertices_;
  std::unordered_map<PositionKey, std::uint32_t, PositionHash> seen_;
};

}  // namespace

bool ReadMesh(const std::string& path, Scan& scan, std::string& reason) {
  Assimp::Importer importer;
  // Points stay in the file's own axes (no up-axis turn).
  importer.SetPropertyBool(AI_CONFIG_IMPORT_COLLADA_IGNORE_UP_DIRECTION, true);
  const aiScene* scene = importer.ReadFile(path, 0);
  if (scene == nullptr) {
    reason = "unreadable " + UpperExtension(path) + " file (" + importer.GetErrorString() + ")";
    return false;
  }
  VertexCollector collector(*scene);
  collector.CollectScene();
  const std::vector<Vertex>& vertices = collector.Vertices();
  const bool normals = collector.Normals();
  const bool colors = collector.Colors();
  if (vertices.empty()) {
    reason = "the " + UpperExtension(path) + " file has no vertices";
    return false;
  }
  if (vertices.size() >= Scan::INVALID_INDEX) {
    reason = "the file has more vertices than a scan can hold";
    return false;
  }

  const auto count = static_cast<std::uint32_t>(vertices.size());
  StartUnorganisedScan(scan, count, normals, colors);
  glm::vec3* positions = scan.GetPositions();
  glm::vec3* normalArray = scan.GetNormals();
  Color3f* colorArray = scan.GetColors();
  for (std::uint32_t i = 0; i < count; ++i) {
    positions[i] = vertices[i].position;
    if (normalArray != nullptr) normalArray[i] = vertices[i].normal;
    if (colorArray != nullptr) colorArray[i] = vertices[i].color;
  }
  return true;
}

}  // namespace foreign
}  // namespace zelk
