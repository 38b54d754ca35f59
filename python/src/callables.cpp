// Python callables run by library code (see callables.h).
#include "callables.h"

#include "errors.h"

#include <condition_variable>
#include <mutex>
#include <string>

namespace tavrin_python {
namespace {

// Counts the threads that are about to take, or hold, the GIL for a callback
// (to call it or to release it), so that interpreter shutdown can wait for
// them: a thread that asks for the GIL once finalisation has begun is ended
// by the interpreter in the middle of the library's stack.
struct Gate {
  std::mutex mutex;
  std::condition_variable idle;
  bool closing = false;
  int inside = 0;
};

Gate& TheGate() {
  static Gate* const gate = new Gate;  // used by library threads until the very end; never freed
  return *gate;
}

// Enter() true: the caller may take the GIL and must call Leave() afterwards.
bool Enter() {
  Gate& gate = TheGate();
  std::lock_guard<std::mutex> lock(gate.mutex);
  if (gate.closing) return false;
  ++gate.inside;
  return true;
}

void Leave() {
  Gate& gate = TheGate();
  std::lock_guard<std::mutex> lock(gate.mutex);
  if (--gate.inside == 0) gate.idle.notify_all();
}

struct Entered {
  bool ok = Enter();
  ~Entered() {
    if (ok) Leave();
  }
};

// Releases the reference on whatever thread the library drops its last copy.
void Release(py::object* object) {
  if (Py_IsInitialized() && PyGILState_Check()) {
    delete object;
    return;
  }
  const Entered entered;
  if (!entered.ok || !Py_IsInitialized()) {
    object->release();  // the interpreter is going away: leave the reference to it
    delete object;
    return;
  }
  const py::gil_scoped_acquire gil;
  delete object;
}

}  // namespace

Acceptance::Acceptance(const py::object& accept) {
  if (accept.is_none()) return;
  if (PyCallable_Check(accept.ptr())) {
    callable_ = std::make_unique<Callable>();
    callable_->function = accept;
    Callable* const state = callable_.get();
    // The library calls this on the thread of the call, which released the
    // GIL for the capture: the GIL is taken once per point.
    function_ = [state](const glm::vec3& p) {
      if (state->error) return false;
      const py::gil_scoped_acquire gil;
      try {
        const py::object result = state->function(p.x, p.y, p.z);
        const int truth = PyObject_IsTrue(result.ptr());
        if (truth < 0) throw py::error_already_set();
        return truth == 1;
      } catch (...) {
        state->error = std::current_exception();
        return false;
      }
    };
    return;
  }
  Box box;
  if (py::isinstance<Box>(accept)) {
    box = accept.cast<Box>();
  } else {
    const auto array = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(accept);
    if (!array || array.ndim() != 2 || array.shape(0) != 2 || array.shape(1) != 3) {
      throw py::type_error(
          "accept must be None, a callable f(x, y, z), a tavrin.Box or [[xmin, ymin, zmin], [xmax, ymax, zmax]]");
    }
    box = Box{glm::vec3(array.at(0, 0), array.at(0, 1), array.at(0, 2)),
              glm::vec3(array.at(1, 0), array.at(1, 1), array.at(1, 2))};
  }
  function_ = [box](const glm::vec3& p) {
    return glm::all(glm::greaterThanEqual(p, box.low)) && glm::all(glm::lessThanEqual(p, box.high));
  };
}

void Acceptance::RaiseIfFailed() {
  if (callable_ && callable_->error) {
    std::exception_ptr error = callable_->error;
    callable_->error = nullptr;
    std::rethrow_exception(error);
  }
}

std::function<void()> ThreadSafeCallback(const py::function& callback) {
  const std::shared_ptr<py::object> function(new py::object(callback), Release);
  return [function] {
    const Entered entered;
    if (!entered.ok) return;
    const py::gil_scoped_acquire gil;
    try {
      (*function)();
    } catch (py::error_already_set& error) {
      error.discard_as_unraisable("tavrin: connection-lost callback");
    }
    // This thread is in no Call: its lines wait in the queue until now.
    ForwardQueuedLines();
  };
}

void BindAcceptance(py::module_& m) {
  py::class_<Box>(m, "Box",
                  "An axis-aligned box for the `accept` argument of captures and conversions: keeps the points "
                  "with min <= p <= max on every axis, tested in C++ at full speed.")
      .def(py::init([](const py::handle& low, const py::handle& high) { return Box{ToVec3(low), ToVec3(high)}; }),
           py::arg("min"), py::arg("max"))
      .def_property_readonly("min", [](const Box& b) { return ToArray(b.low); }, "float32[3] (a copy)")
      .def_property_readonly("max", [](const Box& b) { return ToArray(b.high); }, "float32[3] (a copy)")
      .def("__repr__", [](const Box& b) {
        const auto triple = [](const glm::vec3& v) {
          return py::str("({!r}, {!r}, {!r})").format(v.x, v.y, v.z).cast<std::string>();
        };
        return "tavrin.Box(min=" + triple(b.low) + ", max=" + triple(b.high) + ")";
      });
}

void StopCallbacks() {
  Gate& gate = TheGate();
  {
    std::lock_guard<std::mutex> lock(gate.mutex);
    gate.closing = true;
  }
  const py::gil_scoped_release release;  // a running callback may be waiting for it
  std::unique_lock<std::mutex> lock(gate.mutex);
  gate.idle.wait(lock, [&] { return gate.inside == 0; });
}

}  // namespace tavrin_python
