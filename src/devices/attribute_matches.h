// The search behind findAttributeMatches: a walk of the store's tree from a starting node
// that reads one attribute of every node it visits and keeps the nodes whose attribute text
// matches a regular expression (platform/pattern.h, found anywhere in the text).
#ifndef WSGATE_DEVICES_ATTRIBUTE_MATCHES_H
#define WSGATE_DEVICES_ATTRIBUTE_MATCHES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/cds.h"
#include "service/options.h"

struct AttributeSearch {
  std::string starting_path;  // tested itself, then walked
  bool recursive = false;     // all levels below it, or its direct children only
  std::string attribute;      // read on each node; empty: the node's Value
  std::string pattern;        // empty: every node whose attribute reads matches
};

// What one search may cost the only thread: a pattern longer than `max_pattern_bytes` is
// refused (compiling a megabyte of alternatives takes a third of a second and 70 MB); the
// search stops once it has gathered `max_matches` matches or `max_bytes` of paths and
// texts, or once `max_seconds` have passed on `clock` (monotonic seconds, checked after
// each node). A single node's search is bounded by the regular-expression library itself,
// which gives up on expressions that backtrack beyond its complexity limit.
struct SearchBounds {
  size_t max_pattern_bytes = 64u << 10;
  size_t max_matches = 100000;
  size_t max_bytes = 16u << 20;
  uint32_t max_seconds = 2;
  uint32_t (*clock)() = nullptr;  // null: the platform's monotonic clock
};

struct SearchResult {
  std::string result;  // empty when the walk completed, else an error text
  std::vector<std::string> nodes;
  std::vector<std::string> data;  // the matched text of nodes[i]
};

// Tests the starting node, then walks below it depth first (a node before its subtree,
// children in the store's name order). A node matches when its attribute reads without
// error (read right included; under `options`, an error text or one beginning with the
// errorPrefix never matches) and the pattern is found in the text. A pattern that does not
// compile, or whose search the library abandons on a node, matches nothing there and leaves
// `result` empty. A pattern over its bound is refused with code 33 in `result`; a search
// that reaches a bound ends with code 34 in `result` and keeps the matches gathered so far;
// any other exception ends it with "? " and the exception's text.
void findAttributeMatches(toolkit::CCds& cds, const AttributeSearch& search,
                          const RequestOptions& options, const SearchBounds& bounds,
                          SearchResult& found);

#endif  // WSGATE_DEVICES_ATTRIBUTE_MATCHES_H
