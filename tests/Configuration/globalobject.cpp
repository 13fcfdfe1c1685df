// A program whose global object uses the library once more when the process ends: it was there
// before the first call, so that it goes after everything that the calls made.
//
//     globalobject FILE           linked against the library
//     globalobject-host FILE      loads it, with a plugin, when it runs; the global object is older
//                                 than the static objects of the library then
#include "EndOfProcess.h"

#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>
#include <unistd.h>

namespace {

using Use = bool (*)(const char *path, int value);

class Application
{
public:
    ~Application()
    {
        if (use == nullptr || !use(path, 2)) {
            _exit(EXIT_FAILURE);
        }
    }

    Use use = nullptr;
    const char *path = nullptr;
};

Application application;

Use findUse()
{
#ifdef PLUGIN
    void *const plugin = dlopen(PLUGIN, RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return nullptr;
    }
    return reinterpret_cast<Use>(dlsym(plugin, "useTheLibrary"));
#else
    return useTheLibrary;
#endif
}

} // namespace

int main(int argumentCount, char **arguments)
{
    application.use = findUse();
    application.path = argumentCount == 2 ? arguments[1] : "";
    return application.use != nullptr && application.use(application.path, 1) ? EXIT_SUCCESS
                                                                              : EXIT_FAILURE;
}
