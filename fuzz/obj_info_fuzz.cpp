// libFuzzer entry point for tavrin_fuzz::FuzzObjInfo.
#include "FuzzMain.h"
#include "ObjInfoTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return tavrin_fuzz::FuzzObjInfo(data, size);
}
