#include "native/Bindings.h"
#include "native/Failure.h"
#include "native/LibraryMessages.h"

PYBIND11_MODULE(_native, module)
{
    module.doc() =
        "What the package tessel is made of. Use the package: this may change at any time.";
    registerFailures();
    LibraryMessages::install();
    bindRegions(module);
    bindConfigurations(module);
    module.def("deliver_messages", &LibraryMessages::deliver);
}
