#pragma once
// The one rule that decides whether a PhoXi frame can be converted; the
// device-handle conversion and acquisition both apply it before converting.
#include <PhoXiDataTypes.h>

#include <memory>

namespace tavrin {

// True for a non-null frame whose success flag is set, that is not Empty()
// and whose point cloud map holds data. Cheap; reads flags only.
inline bool IsUsableFrame(const std::shared_ptr<pho::api::Frame>& frame) {
  return frame && frame->Successful && !frame->Empty() && !frame->PointCloud.Empty();
}

}  // namespace tavrin
