#include "maintenance/node_maintenance.h"

#include <algorithm>

#include "platform/path.h"
#include "service/errors.h"
#include "values/value_write.h"
#include "values/writer_source.h"

namespace {

// Whether the caller may write `text`, as the list write core will ask: a path that does
// not normalize is not refused here (it fails on its own later).
bool mayWrite(const std::string& text) {
  CPath path(text);
  return path.normalize() != 0 || path.is_write_authorized();
}

// Makes `node` unless it exists; false when the store could not make it.
bool makeNode(toolkit::CCds& cds, const std::string& node, const std::string& source) {
  api_status_t status = API_STATUS_UNKNOWN;
  if (cds.test_node(node, status) == 0 && status == API_STATUS_OK) return true;
  return cds.add_node(node, status, source) == 0 && status == API_STATUS_OK;
}

}  // namespace

int createNode(toolkit::CCds& cds, const std::string* base_path,
               const std::vector<std::string>& paths, const std::vector<std::string>& values,
               const RequestOptions& options, std::string& result) {
  result.clear();
  if (!checkWriteLists(paths, values, nullptr, result)) return 0;
  if (base_path == nullptr) {
    formatError(kWsBadPathSyntax, "No node path provided", result, nullptr);
    return 0;
  }
  std::string node = *base_path;
  if (!node.empty() && (node.back() == ':' || node.back() == '/')) node.pop_back();

  std::vector<std::string> leaf_paths;
  leaf_paths.reserve(paths.size());
  size_t result_index = 0;
  for (size_t i = 0; i < paths.size(); ++i) {
    leaf_paths.push_back(*base_path + paths[i]);
    if (paths[i] == "Value") result_index = i;
  }
  // Asked before anything is made: the write core alone would refuse a leaf only after the
  // node had been made.
  if (!mayWrite(node) || !std::all_of(leaf_paths.begin(), leaf_paths.end(), mayWrite)) {
    return kMaintenanceUnauthorized;
  }
  if (!makeNode(cds, node, writerSource())) {
    formatError(kWsWriteFailed, "", result, nullptr);
    return 0;
  }

  std::vector<std::string> results;
  const int status = writeValues(cds, leaf_paths, values, options, /*maintenance=*/true, results);
  if (result_index < results.size()) result = std::move(results[result_index]);
  return status;
}

int removeNode(toolkit::CCds& cds, const std::string* base_path, const RequestOptions& options,
               std::string& result) {
  result.clear();
  CPath path(base_path != nullptr ? *base_path : std::string());
  if (base_path == nullptr || path.normalize() != 0) {
    formatError(kWsBadPathSyntax, "CDS Error in supplied path", result, &options);
    return 0;
  }
  if (!path.is_remove_authorized()) return kMaintenanceUnauthorized;

  const std::string source = writerSource();
  api_status_t status = API_STATUS_UNKNOWN;
  const int call = base_path->find(':') != std::string::npos
                       ? cds.clear_leaf(path.getPath(), status, options.persist, source)
                       : cds.remove_node(*base_path, status, options.persist, source);
  if (call != 0 || status != API_STATUS_OK) {
    formatError(kWsNodeNotFound, "CDS Error removing node", result, &options);
  }
  return 0;
}
