// The extension module `tavrin`: the library's surface for Python (see the
// README's Python section). Each topic file binds its part; this one puts
// them together and ties the module to the interpreter's shutdown.
#include "bindings.h"
#include "callables.h"
#include "errors.h"

PYBIND11_MODULE(tavrin, m) {
  using namespace tavrin_python;
  m.doc() =
      "PhoXi-family structured-light scanners, scans as NumPy arrays, Photoneo PLY and other scan files. "
      "Failures raise tavrin.Error; the library's other log lines go to the logger 'tavrin' of the logging module.";
  m.attr("__version__") = TAVRIN_VERSION;
  BindErrors(m);
  BindRecords(m);
  BindAcceptance(m);
  BindScan(m);
  BindFrames(m);
  BindFiles(m);
  BindDevice(m);
  BindSim(m);
  // Before the interpreter tears down, no connection-lost callback may be
  // left entering it (see callables.h).
  py::module_::import("atexit").attr("register")(py::cpp_function(&StopCallbacks));
}
