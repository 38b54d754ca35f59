// Direct stores of our RPly: every scalar type in every storage format lands
// in its store as the callback's value converted (to float, or to the low 8
// bits of its truncation), also when the bulk reader splits the element
// across threads; instances past a store's count are not written; a file that
// ends early gives the callbacks' message and stores what came before it.
#include "RplyTestSupport.h"
#include "support/PlyBuilder.h"
#include "support/ScratchDir.h"

#include <rply_store.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace {

using tavrin_test::PlyContent;
using tavrin_test::PlyElement;
using tavrin_test::PlyEncoding;

const char* const kTypes[] = {"char", "uchar", "short", "ushort", "int", "uint", "float", "double"};
constexpr int kInstances = 40;
constexpr long kSentinelCount = kInstances - 3;  // the uint8 stores stop short

PlyContent AllTypes() {
  PlyElement element{"sample", {}, {}};
  for (const char* type : kTypes) element.properties.push_back({type, std::string("p_") + type, ""});
  for (int i = 0; i < kInstances; ++i) {
    std::vector<double> row;
    for (const char* type : kTypes) {
      const std::string t = type;
      const double sign = i % 2 == 0 ? 1.0 : -1.0;
      if (t == "float" || t == "double") {
        row.push_back(i % 13 == 5 ? std::nan("") : sign * (i * 77.125 + 0.3));
      } else {
        const bool unsigned_ = t[0] == 'u';
        row.push_back((unsigned_ ? 1.0 : sign) * ((i * 37) % (t.find("char") != std::string::npos ? 120 : 30000)));
      }
    }
    element.rows.push_back(row);
  }
  PlyContent content;
  content.elements = {element, {"tail", {{"float", "t", ""}}, {{1.5}}}};
  return content;
}

struct StoreRead {
  std::vector<std::string> errors;
  std::vector<float> floats;
  std::vector<unsigned char> bytes;
  bool ok = false;
};

// Every property of "sample" to a float store and to a byte store (in two
// reads, whose messages are collected in turn), split over three threads.
StoreRead ReadStores(const std::string& path) {
  StoreRead result;
  const std::size_t n = std::size(kTypes);
  result.floats.assign(n * kInstances, -7.0f);
  result.bytes.assign(n * kInstances, 0xEE);
  for (const e_ply_store_type type : {PLY_STORE_FLOAT32, PLY_STORE_UINT8_LOW}) {
    std::vector<std::string> errors;
    p_ply ply = ply_open(path.c_str(), rply_test::CollectError, 0, &errors);
    EXPECT_TRUE(ply != nullptr && ply_read_header(ply));
    ply_set_read_threads(ply, 3, 1);
    for (std::size_t k = 0; k < n; ++k) {
      const std::string name = std::string("p_") + kTypes[k];
      void* base = type == PLY_STORE_FLOAT32 ? static_cast<void*>(&result.floats[k])
                                             : static_cast<void*>(&result.bytes[k]);
      const std::size_t stride = type == PLY_STORE_FLOAT32 ? n * sizeof(float) : n;
      const long count = type == PLY_STORE_FLOAT32 ? kInstances : kSentinelCount;
      EXPECT_EQ(ply_set_read_store(ply, "sample", name.c_str(), type, base, stride, count), kInstances);
    }
    result.ok = ply_read(ply) == 1;
    ply_close(ply);
    result.errors.insert(result.errors.end(), errors.begin(), errors.end());
  }
  return result;
}

class RplyStoreTest : public ::testing::TestWithParam<PlyEncoding> {};

TEST_P(RplyStoreTest, StoresHoldTheCallbacksValuesConverted) {
  tavrin_test::ScratchDir dir;
  const std::string bytes = tavrin_test::BuildPly(AllTypes(), GetParam());
  const std::size_t dataStart = bytes.find("end_header\n") + 11;
  // Whole, and cut in the middle of the sample element.
  for (const std::size_t size : {bytes.size(), dataStart + (bytes.size() - dataStart) / 2}) {
    const std::string path = dir.Write("types.ply", bytes.substr(0, size));
    const rply_test::ReadResult callbacks = rply_test::ReadEverything(path);
    const StoreRead stores = ReadStores(path);
    EXPECT_EQ(stores.ok, callbacks.readOk);
    std::vector<std::string> expectedErrors = callbacks.errors;  // once per read of ReadStores
    expectedErrors.insert(expectedErrors.end(), callbacks.errors.begin(), callbacks.errors.end());
    EXPECT_EQ(stores.errors, expectedErrors);
    for (const rply_test::Event& event : callbacks.events) {
      if (event.element != "sample") continue;
      const std::size_t at = static_cast<std::size_t>(event.instance) * std::size(kTypes) +
                             static_cast<std::size_t>(event.idata);
      SCOPED_TRACE(event.property + " " + std::to_string(event.instance));
      const float expected = static_cast<float>(event.value);
      EXPECT_EQ(std::memcmp(&stores.floats[at], &expected, sizeof expected), 0) << stores.floats[at];
      const unsigned char expectedByte = event.instance < kSentinelCount ? ply_store_uint8_low(event.value) : 0xEE;
      EXPECT_EQ(stores.bytes[at], expectedByte);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllFormats, RplyStoreTest,
                         ::testing::Values(PlyEncoding::Ascii, PlyEncoding::BinaryLittleEndian,
                                           PlyEncoding::BinaryBigEndian),
                         [](const auto& info) { return std::string(tavrin_test::PlyEncodingName(info.param)); });

TEST(RplyStore, OnlyScalarPropertiesThatExistTakeAStore) {
  tavrin_test::ScratchDir dir;
  PlyContent content;
  content.elements = {{"face", {{"int", "vertex_indices", "uchar"}, {"float", "w", ""}}, {{3, 0, 1, 2, 0.5}}}};
  const std::string path = dir.Write("list.ply", tavrin_test::BuildPly(content, PlyEncoding::Ascii));
  p_ply ply = ply_open(path.c_str(), nullptr, 0, nullptr);
  ASSERT_TRUE(ply_read_header(ply));
  float value = 0;
  EXPECT_EQ(ply_set_read_store(ply, "face", "vertex_indices", PLY_STORE_FLOAT32, &value, 4, 1), 0);
  EXPECT_EQ(ply_set_read_store(ply, "face", "missing", PLY_STORE_FLOAT32, &value, 4, 1), 0);
  EXPECT_EQ(ply_set_read_store(ply, "face", "w", PLY_STORE_FLOAT32, nullptr, 4, 1), 0);
  EXPECT_EQ(ply_set_read_store(ply, "face", "w", PLY_STORE_FLOAT32, &value, 4, 1), 1);
  EXPECT_EQ(ply_read(ply), 1);
  EXPECT_EQ(value, 0.5f);
  ply_close(ply);
}

}  // namespace
