#include "platform/pattern.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <new>

#include "platform/pattern_engine.h"

namespace {

constexpr const char* kModuleName = "libwsgate_regex.so";

struct Engine {
  decltype(&wsgate_pattern_compile) compile = nullptr;
  decltype(&wsgate_pattern_search) search = nullptr;
  decltype(&wsgate_pattern_free) release = nullptr;
  std::string error;  // why the module could not be loaded
};

// Where the module is looked for first: beside the executable.
std::string besideExecutable() {
  char self[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return std::string();
  std::string path(self, static_cast<size_t>(n));
  return path.substr(0, path.rfind('/') + 1) + kModuleName;
}

Engine load() {
  Engine engine;
  void* module = nullptr;
  const std::string beside = besideExecutable();
  if (!beside.empty()) module = dlopen(beside.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) module = dlopen(kModuleName, RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    const char* why = dlerror();
    engine.error = std::string("regular expressions unavailable: ") + (why ? why : kModuleName);
    return engine;
  }
  // Kept loaded for the life of the process: the next pattern needs it again.
  engine.compile =
      reinterpret_cast<decltype(engine.compile)>(dlsym(module, "wsgate_pattern_compile"));
  engine.search = reinterpret_cast<decltype(engine.search)>(dlsym(module, "wsgate_pattern_search"));
  engine.release = reinterpret_cast<decltype(engine.release)>(dlsym(module, "wsgate_pattern_free"));
  if (engine.compile == nullptr || engine.search == nullptr || engine.release == nullptr) {
    engine.compile = nullptr;
    engine.error =
        std::string("regular expressions unavailable: ") + kModuleName + " lacks its entry points";
  }
  return engine;
}

const Engine& engine() {
  static const Engine loaded = load();
  return loaded;
}

}  // namespace

Pattern::Pattern(const std::string& text) : compiled_(nullptr) {
  const Engine& e = engine();
  if (e.compile == nullptr) throw std::runtime_error(e.error);
  char message[256] = {};
  const int rc = e.compile(text.data(), text.size(), &compiled_, message, sizeof message);
  if (rc == kWsgatePatternNoMemory) throw std::bad_alloc();
  if (rc != kWsgatePatternCompiled) throw PatternError(message);
}

Pattern::~Pattern() {
  engine().release(compiled_);
}

bool Pattern::search(const std::string& text) const {
  const int rc = engine().search(compiled_, text.data(), text.size());
  if (rc == kWsgatePatternNoMemory) throw std::bad_alloc();
  if (rc == kWsgatePatternGaveUp) throw std::runtime_error("regular expression search abandoned");
  return rc == kWsgatePatternFound;
}
