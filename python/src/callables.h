#pragma once
// Python objects handed to the library as functions: the acceptance function
// of a capture or conversion, and the connection-lost callback that runs on
// a device's watchdog thread.
//
// The library copies and destroys these std::functions on its own threads,
// without the GIL; so what they hold is either a plain pointer into a frame
// of the binding that outlives the library call (Acceptance) or a reference
// whose last release takes the GIL (the callback).
#include "bindings.h"

#include <tavrin/Conversions.h>

#include <exception>
#include <functional>
#include <memory>

namespace tavrin_python {

// tavrin.Box: an axis-aligned box of points to keep, bounds included.
struct Box {
  glm::vec3 low;
  glm::vec3 high;
};

// The `accept` argument of a capture or conversion, for one library call:
// - None: every point is kept (an empty function);
// - a Python callable f(x, y, z) -> truthy: called once per measured point,
//   taking the GIL each time, so a capture runs several times slower. An
//   exception it raises rejects the remaining points and is raised again by
//   RaiseIfFailed once the call is over;
// - a tavrin.Box, or anything NumPy reads as a 2 x 3 array [[xmin, ymin,
//   zmin], [xmax, ymax, zmax]]: keeps the points inside that axis-aligned box
//   (bounds included), tested in C++ without the GIL at full speed.
// Construct and destroy with the GIL held; Function() must not outlive this.
class Acceptance {
public:
  explicit Acceptance(const py::object& accept);
  Acceptance(const Acceptance&) = delete;
  Acceptance& operator=(const Acceptance&) = delete;

  tavrin::AcceptanceFunction Function() const { return function_; }
  // Re-raises what the callable raised, if anything (GIL held).
  void RaiseIfFailed();

private:
  struct Callable {
    py::object function;
    std::exception_ptr error;
  };
  std::unique_ptr<Callable> callable_;
  tavrin::AcceptanceFunction function_;
};

// A Python callable as a std::function<void()> that may run, be copied and be
// destroyed on any thread. Each call takes the GIL; an exception it raises is
// reported as unraisable (printed) and goes no further. Once the interpreter
// has begun to shut down (atexit), calls are skipped.
std::function<void()> ThreadSafeCallback(const py::function& callback);

// Registered with atexit: from now on no callback enters Python; waits
// (without the GIL) for those running to return.
void StopCallbacks();

}  // namespace tavrin_python
