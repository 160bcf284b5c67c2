#include "tools/interchange.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/vtx.h"
#include "tools/cli.h"
#include "tools/format.h"
#include "tools/json_fields.h"

namespace cdstool {
namespace {

// Keeps the keys of every written object in the documented order.
using OrderedJson = nlohmann::ordered_json;

std::string pathField(const Json& object, const char* key, const std::string& item) {
  std::string path = stringField(object, key, item, true);
  if (path.empty() || path[0] != '/') {
    throw DocumentError(item + ": \"" + path + "\" is not an absolute path");
  }
  return path;
}

toolkit::leaf_write_t parseLeaf(const Json& leaf, size_t index) {
  std::string item = "leaves[" + std::to_string(index) + "]";
  checkObject(leaf, {"path", "type", "value", "storage", "time"}, item);
  toolkit::leaf_write_t write;
  write.path = pathField(leaf, "path", item);
  item += " (" + write.path + ")";
  write.value = typedValue(leaf, item);
  std::string storage = stringField(leaf, "storage", item, false);
  if (!storage.empty() && !parseStorageName(storage, write.storage)) {
    throw DocumentError(item + ": unknown storage \"" + storage + "\"");
  }
  auto time = leaf.find("time");
  if (time != leaf.end()) {
    if (!time->is_number_integer()) throw DocumentError(item + ": \"time\" is not an integer");
    write.value.set_time(vtx_VTXtoUNIXtime64(time->get<int64_t>()));
  }
  return write;
}

toolkit::right_rule_t parseRule(const Json& rule, size_t index) {
  std::string item = "rights[" + std::to_string(index) + "]";
  checkObject(rule, {"user", "prefix", "rights"}, item);
  toolkit::right_rule_t parsed;
  parsed.user = stringField(rule, "user", item, true);
  parsed.prefix = pathField(rule, "prefix", item);
  parsed.rights = stringField(rule, "rights", item, true);
  if (!validRights(parsed.rights)) {
    throw DocumentError(item + ": \"" + parsed.rights + "\" is not a set of the letters rwdx");
  }
  return parsed;
}

// True when `prefix` is `node` or lies below it, component by component.
bool inSubtree(const std::string& prefix, const std::string& node) {
  if (node == "/") return true;
  return prefix == node || prefix.compare(0, node.size() + 1, node + "/") == 0;
}

}  // namespace

bool validRights(const std::string& letters) {
  std::string seen;
  for (char c : letters) {
    if (std::string("rwdx").find(c) == std::string::npos || seen.find(c) != std::string::npos) {
      return false;
    }
    seen += c;
  }
  return true;
}

bool parseDocument(const std::string& json_text, Document& doc, std::string& error) {
  try {
    Json root = parseJson(json_text);
    if (!root.is_object()) throw DocumentError("the document is not a JSON object");
    checkObject(root, {"nodes", "leaves", "rights"}, "document");
    const Json& nodes = arrayField(root, "nodes", "document");
    for (size_t i = 0; i < nodes.size(); ++i) {
      std::string item = "nodes[" + std::to_string(i) + "]";
      if (!nodes[i].is_string()) throw DocumentError(item + ": not a string");
      std::string path = nodes[i].get<std::string>();
      if (path.empty() || path[0] != '/') {
        throw DocumentError(item + ": \"" + path + "\" is not an absolute path");
      }
      doc.nodes.push_back(path);
    }
    const Json& leaves = arrayField(root, "leaves", "document");
    for (size_t i = 0; i < leaves.size(); ++i) doc.leaves.push_back(parseLeaf(leaves[i], i));
    const Json& rights = arrayField(root, "rights", "document");
    for (size_t i = 0; i < rights.size(); ++i) doc.rights.push_back(parseRule(rights[i], i));
    return true;
  } catch (const DocumentError& e) {
    error = e.what();
    return false;
  }
}

std::string documentJson(const Document& doc) {
  OrderedJson root = OrderedJson::object();
  root["nodes"] = doc.nodes;
  OrderedJson leaves = OrderedJson::array();
  for (const auto& leaf : doc.leaves) {
    leaves.push_back({{"path", leaf.path},
                      {"type", typeName(leaf.value.get_type())},
                      {"value", leaf.value.to_string()},
                      {"storage", storageName(leaf.storage)},
                      {"time", leafTime(leaf.value)}});
  }
  root["leaves"] = leaves;
  OrderedJson rights = OrderedJson::array();
  for (const auto& rule : doc.rights) {
    rights.push_back({{"user", rule.user}, {"prefix", rule.prefix}, {"rights", rule.rights}});
  }
  root["rights"] = rights;
  // Replacing invalid UTF-8 keeps export working on any stored text.
  return root.dump(2, ' ', false, OrderedJson::error_handler_t::replace) + "\n";
}

void collectSubtree(toolkit::CCds& cds, const std::string& node, Document& doc) {
  api_status_t status = API_STATUS_UNKNOWN;
  int result = cds.list_subtree(node, doc.nodes, status);
  checkStatus(result, status, node);
  for (const std::string& path : doc.nodes) {
    std::vector<toolkit::leaf_record_t> records;
    result = cds.list_leaves(path, records, status);
    checkStatus(result, status, path);
    for (const auto& record : records) {
      if (record.prop.storage == STORAGE_AUTOMATIC) continue;  // computed on read
      doc.leaves.push_back({joinPath(path, record.name), record.value, record.prop.storage});
    }
  }
  std::vector<toolkit::right_rule_t> rules;
  if (cds.rights_list(rules) != 0) throw OperationError(errorText("rights", "store access failed"));
  for (const auto& rule : rules) {
    if (inSubtree(rule.prefix, node)) doc.rights.push_back(rule);
  }
  std::sort(doc.rights.begin(), doc.rights.end(), [](const auto& a, const auto& b) {
    return a.user != b.user ? a.user < b.user : a.prefix < b.prefix;
  });
}

void importDocument(toolkit::CCds& cds, const Document& doc, const std::string& source) {
  std::string error;
  if (cds.import(doc.nodes, doc.leaves, doc.rights, source, error) != 0) {
    throw OperationError(errorText("import", error.empty() ? "store access failed" : error));
  }
}

}  // namespace cdstool
