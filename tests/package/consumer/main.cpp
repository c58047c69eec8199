// Loads the installed module and prints its path and the name that its
// GetModuleInfo export reports. Exits 1 when any step fails.
#include <dlfcn.h>

#include <cstdio>

#include <datastore/HostBoundary.h>

int main() {
  void* library = dlopen(MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "dlopen: %s\n", dlerror());
    return 1;
  }
  const auto getInfo =
      reinterpret_cast<GetModuleInfoFunction>(dlsym(library, kExportGetModuleInfo));
  MODULE_INFO info{};
  if (getInfo == nullptr || getInfo(&info) != 0) {
    std::fprintf(stderr, "%s failed\n", kExportGetModuleInfo);
    return 1;
  }
  std::printf("module %s\nname %.*s\n", MODULE_PATH, static_cast<int>(sizeof info.name), info.name);
  dlclose(library);
  return 0;
}
