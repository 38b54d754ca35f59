#include "convert/HugePageAllocator.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace {

bool AllZero(const cv::Mat& mat) {
  const auto* bytes = mat.data;
  const std::size_t n = mat.total() * mat.elemSize();
  for (std::size_t i = 0; i < n; ++i)
    if (bytes[i] != 0) return false;
  return true;
}

// Small and large (mapped) matrices, including sizes that are not whole pages.
class HugePageMat : public ::testing::TestWithParam<cv::Size> {};

TEST_P(HugePageMat, ZeroMatIsZeroAndFullyWritable) {
  const cv::Size size = GetParam();
  for (int round = 0; round < 2; ++round) {  // the second round may reuse freed memory
    cv::Mat mat = tavrin::NewZeroMat(size.height, size.width, CV_32FC3);
    ASSERT_EQ(mat.rows, size.height);
    ASSERT_EQ(mat.cols, size.width);
    ASSERT_EQ(mat.type(), CV_32FC3);
    ASSERT_TRUE(mat.isContinuous());
    EXPECT_TRUE(AllZero(mat));
    std::memset(mat.data, 0xAB, mat.total() * mat.elemSize());
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, HugePageMat,
                         ::testing::Values(cv::Size(3, 2), cv::Size(1032, 772), cv::Size(2064, 1544),
                                           cv::Size(1, 174763)));

TEST(HugePageMat, LargeMatricesAreHugePageAligned) {
  const cv::Mat mat = tavrin::NewHugePageMat(1544, 2064, CV_32FC3);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(mat.data) % (std::uintptr_t(2) << 20), 0u);
}

TEST(HugePageMat, SharedHeadersKeepTheBufferAlive) {
  cv::Mat copy;
  {
    cv::Mat mat = tavrin::NewZeroMat(1544, 2064, CV_8UC3);
    mat.at<cv::Vec3b>(1543, 2063) = cv::Vec3b(1, 2, 3);
    copy = mat;
  }
  EXPECT_EQ(copy.at<cv::Vec3b>(1543, 2063), cv::Vec3b(1, 2, 3));
  cv::Mat clone = copy.clone();  // an ordinary allocation copies it out
  copy.release();
  EXPECT_EQ(clone.at<cv::Vec3b>(1543, 2063), cv::Vec3b(1, 2, 3));
}

TEST(HugePageMat, AdviceNeverChangesContents) {
  std::vector<std::uint32_t> values(3 << 20);
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<std::uint32_t>(i);
  tavrin::AdviseHugePages(values.data(), values.size() * sizeof(std::uint32_t));
  tavrin::AdviseHugePages(nullptr, 100);
  tavrin::AdviseHugePages(values.data(), 0);
  for (std::size_t i = 0; i < values.size(); ++i) ASSERT_EQ(values[i], i);
}

}  // namespace
