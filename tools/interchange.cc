#include "tools/interchange.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "platform/vtx.h"
#include "tools/cli.h"
#include "tools/format.h"

namespace cdstool {
namespace {

using Json = nlohmann::json;
// Keeps the keys of every written object in the documented order.
using OrderedJson = nlohmann::ordered_json;

// A fault in the document, already naming the item.
class DocumentError : public std::runtime_error {
 public:
  explicit DocumentError(const std::string& what) : std::runtime_error(what) {}
};

void checkKeys(const Json& object, const std::vector<std::string>& allowed,
               const std::string& item) {
  for (const auto& entry : object.items()) {
    if (std::find(allowed.begin(), allowed.end(), entry.key()) == allowed.end()) {
      throw DocumentError(item + ": unknown key \"" + entry.key() + "\"");
    }
  }
}

const Json& requireArray(const Json& doc, const char* key) {
  static const Json kEmpty = Json::array();
  auto it = doc.find(key);
  if (it == doc.end()) return kEmpty;
  if (!it->is_array()) throw DocumentError(std::string(key) + ": not an array");
  return *it;
}

std::string stringField(const Json& object, const char* key, const std::string& item,
                        bool required) {
  auto it = object.find(key);
  if (it == object.end()) {
    if (required) throw DocumentError(item + ": missing \"" + key + "\"");
    return "";
  }
  if (!it->is_string()) throw DocumentError(item + ": \"" + key + "\" is not a string");
  return it->get<std::string>();
}

std::string pathField(const Json& object, const char* key, const std::string& item) {
  std::string path = stringField(object, key, item, true);
  if (path.empty() || path[0] != '/') {
    throw DocumentError(item + ": \"" + path + "\" is not an absolute path");
  }
  return path;
}

// The value's text; numbers and booleans are accepted as well as the strings that export
// writes, so that hand-written documents can say "value": 1.5.
std::string valueText(const Json& leaf, const std::string& item) {
  auto it = leaf.find("value");
  if (it == leaf.end()) throw DocumentError(item + ": missing \"value\"");
  if (it->is_string()) return it->get<std::string>();
  if (it->is_boolean()) return it->get<bool>() ? "true" : "false";
  if (it->is_number()) return it->dump();
  throw DocumentError(item + ": \"value\" is not a string, number or boolean");
}

toolkit::leaf_write_t parseLeaf(const Json& leaf, size_t index) {
  std::string item = "leaves[" + std::to_string(index) + "]";
  if (!leaf.is_object()) throw DocumentError(item + ": not an object");
  checkKeys(leaf, {"path", "type", "value", "storage", "time"}, item);
  toolkit::leaf_write_t write;
  write.path = pathField(leaf, "path", item);
  item += " (" + write.path + ")";
  std::string type_name = stringField(leaf, "type", item, true);
  data_type_t type = pcd_human_str_to_enum(type_name.c_str());
  if (type == DATA_TYPE_NONE) throw DocumentError(item + ": unknown type \"" + type_name + "\"");
  std::string text = valueText(leaf, item);
  write.value = toolkit::CElement(text);
  if (write.value.convert_type(type) != 0) {
    throw DocumentError(item + ": \"" + text + "\" is not a valid " + typeName(type));
  }
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
  if (!rule.is_object()) throw DocumentError(item + ": not an object");
  checkKeys(rule, {"user", "prefix", "rights"}, item);
  toolkit::right_rule_t parsed;
  parsed.user = stringField(rule, "user", item, true);
  parsed.prefix = pathField(rule, "prefix", item);
  parsed.rights = stringField(rule, "rights", item, true);
  if (!validRights(parsed.rights)) {
    throw DocumentError(item + ": \"" + parsed.rights + "\" is not a set of the letters rwdx");
  }
  return parsed;
}

Json parseJson(const std::string& text) {
  try {
    return Json::parse(text);
  } catch (const Json::parse_error& e) {
    // The library's text begins with its own tag in brackets; the rest says where.
    std::string what = e.what();
    size_t tag_end = what.find("] ");
    throw DocumentError(tag_end == std::string::npos ? what : what.substr(tag_end + 2));
  }
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
    checkKeys(root, {"nodes", "leaves", "rights"}, "document");
    const Json& nodes = requireArray(root, "nodes");
    for (size_t i = 0; i < nodes.size(); ++i) {
      std::string item = "nodes[" + std::to_string(i) + "]";
      if (!nodes[i].is_string()) throw DocumentError(item + ": not a string");
      std::string path = nodes[i].get<std::string>();
      if (path.empty() || path[0] != '/') {
        throw DocumentError(item + ": \"" + path + "\" is not an absolute path");
      }
      doc.nodes.push_back(path);
    }
    const Json& leaves = requireArray(root, "leaves");
    for (size_t i = 0; i < leaves.size(); ++i) doc.leaves.push_back(parseLeaf(leaves[i], i));
    const Json& rights = requireArray(root, "rights");
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
