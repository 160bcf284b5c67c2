#include "devices/attribute_matches.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "platform/path.h"
#include "platform/pattern.h"
#include "platform/vtx.h"
#include "service/context.h"
#include "service/errors.h"
#include "soapH.h"
#include "values/value_read.h"

namespace {

// Depth-first order of node paths: the separator sorts before every other character, so a
// node's subtree comes right after it and before its next sibling ("/A", "/A/B", "/A B").
bool visitedBefore(const std::string& a, const std::string& b) {
  auto key = [](char c) { return c == '/' ? 0 : static_cast<unsigned char>(c); };
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [&](char x, char y) { return key(x) < key(y); });
}

uint32_t platformClock() {
  return vtx_GetMonoTime(nullptr);
}

// A bound of the search was reached; the text is the error's detail.
class SearchStopped : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Search {
 public:
  Search(toolkit::CCds& cds, const AttributeSearch& search, const RequestOptions& options,
         const SearchBounds& bounds, const Pattern* regex, SearchResult& found)
      : cds_(cds),
        search_(search),
        options_(options),
        bounds_(bounds),
        clock_(bounds.clock != nullptr ? bounds.clock : platformClock),
        started_(clock_()),
        regex_(regex),
        found_(found) {}

  void run() {
    visit(search_.starting_path);
    std::vector<std::string> children;
    if (CPath(search_.starting_path).getChildPaths(cds_, children) != 0) return;
    for (const std::string& child : children) {
      if (!search_.recursive) {
        visit(child);
        continue;
      }
      // A child's whole subtree in one store call rather than one listing per node (a
      // third of the search's store calls), put in visiting order: depth first, a node
      // before its subtree, siblings in name order.
      std::vector<std::string> subtree;
      api_status_t status;
      if (cds_.list_subtree(child, subtree, status) != 0 || status != API_STATUS_OK) continue;
      // The store lists in byte order, which differs only where a name holds a character
      // that sorts before "/" (a blank, "-", "."): most listings need no sort.
      if (!std::is_sorted(subtree.begin(), subtree.end(), visitedBefore)) {
        std::sort(subtree.begin(), subtree.end(), visitedBefore);
      }
      for (const std::string& path : subtree) visit(path);
    }
  }

 private:
  void visit(const std::string& path) {
    std::string text;
    if (matches(path, text)) keep(path, text);
    if (clock_() - started_ >= bounds_.max_seconds) {
      throw SearchStopped("search stopped after " + std::to_string(bounds_.max_seconds) + " s at " +
                          path);
    }
  }

  bool matches(const std::string& path, std::string& text) const {
    if (!readAttribute(cds_, path, search_.attribute, options_, text)) return false;
    if (!text.empty() && text[0] == '?') return false;
    const std::string& prefix = options_.errorPrefix;
    if (!prefix.empty() && text.compare(0, prefix.size(), prefix) == 0) return false;
    if (regex_ == nullptr) return true;
    try {
      return regex_->search(text);
    } catch (const std::runtime_error&) {
      // The library gave up (complexity or its own stack), which it reports as a plain
      // runtime_error: no match here, the walk goes on.
      return false;
    }
  }

  void keep(const std::string& path, std::string& text) {
    bytes_ += path.size() + text.size();
    if (found_.nodes.size() >= bounds_.max_matches) {
      throw SearchStopped("more than " + std::to_string(bounds_.max_matches) + " matches");
    }
    if (bytes_ > bounds_.max_bytes) {
      throw SearchStopped("matches larger than " + std::to_string(bounds_.max_bytes) + " bytes");
    }
    found_.nodes.push_back(path);
    found_.data.push_back(std::move(text));
  }

  toolkit::CCds& cds_;
  const AttributeSearch& search_;
  const RequestOptions& options_;
  const SearchBounds& bounds_;
  uint32_t (*clock_)();
  uint32_t started_;
  const Pattern* regex_;
  SearchResult& found_;
  size_t bytes_ = 0;
};

}  // namespace

void findAttributeMatches(toolkit::CCds& cds, const AttributeSearch& search,
                          const RequestOptions& options, const SearchBounds& bounds,
                          SearchResult& found) {
  found = SearchResult();
  // Compiled once for the whole walk. A pattern that does not compile would fail on every
  // node and match none, and the walk would end with an empty result: so it ends here.
  if (search.pattern.size() > bounds.max_pattern_bytes) {
    formatError(
        kWsArgumentInvalid,
        "regexMatchPattern longer than " + std::to_string(bounds.max_pattern_bytes) + " bytes",
        found.result, &options);
    return;
  }
  try {
    std::optional<Pattern> regex;
    if (!search.pattern.empty()) {
      try {
        regex.emplace(search.pattern);
      } catch (const PatternError&) {
        return;
      }
    }
    Search(cds, search, options, bounds, regex ? &*regex : nullptr, found).run();
  } catch (const SearchStopped& e) {
    formatError(kWsResultTooBig, e.what(), found.result, &options);
  } catch (const std::exception& e) {
    found.result = std::string("? ") + e.what();
  }
}

namespace {

nsqv__ArrayOfString* newList(struct soap* soap, std::vector<std::string>& items) {
  nsqv__ArrayOfString* list = soap_new_nsqv__ArrayOfString(soap);
  list->string = std::move(items);
  return list;
}

}  // namespace

int nsqv__findAttributeMatches(struct soap* soap, std::string* options, std::string* startingPath,
                               bool bRecursive, std::string* attribMatch,
                               std::string* regexMatchPattern,
                               nsqv__findAttributeMatchesResponse& response) {
  toolkit::CCds& cds = serviceContext(soap).cds;
  toolkit::CReadBatch snapshot(cds);
  const RequestOptions parsed = parseOptions(options);
  AttributeSearch search;
  // Absent texts are empty: no starting node (nothing found), the Value, every node.
  if (startingPath != nullptr) search.starting_path = *startingPath;
  search.recursive = bRecursive;
  if (attribMatch != nullptr) search.attribute = *attribMatch;
  if (regexMatchPattern != nullptr) search.pattern = *regexMatchPattern;
  SearchResult found;
  findAttributeMatches(cds, search, parsed, SearchBounds(), found);
  response.result = std::move(found.result);
  response.nodes = newList(soap, found.nodes);
  response.data = newList(soap, found.data);
  return SOAP_OK;
}
