// Regular expressions (Boost.Regex, default syntax) without Boost.Regex in the daemon's
// image: the library and the ICU libraries it depends on cost 1.8 MB of resident memory in
// every process that maps them (9.2 MB -> 7.2 MB idle), for two rarely used operations.
// The expressions run in a module of our own, libwsgate_regex.so, loaded on the first
// Pattern made and kept loaded. It is looked for beside the executable (where the build
// and the install put it), then on the loader's usual path.
#ifndef WSGATE_PLATFORM_PATTERN_H
#define WSGATE_PLATFORM_PATTERN_H

#include <stdexcept>
#include <string>

// The pattern does not compile.
class PatternError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Pattern {
 public:
  // Compiles `text`: throws PatternError when it does not compile, std::runtime_error when
  // the module cannot be loaded, std::bad_alloc when memory runs out.
  explicit Pattern(const std::string& text);
  ~Pattern();
  Pattern(const Pattern&) = delete;
  Pattern& operator=(const Pattern&) = delete;

  // Whether the pattern is found anywhere in `text`. Throws std::runtime_error when the
  // library gives up (an expression that backtracks beyond its complexity limit),
  // std::bad_alloc when memory runs out.
  bool search(const std::string& text) const;

 private:
  void* compiled_;
};

#endif  // WSGATE_PLATFORM_PATTERN_H
