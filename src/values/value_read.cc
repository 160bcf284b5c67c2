#include "values/value_read.h"

#include <cinttypes>
#include <cstdio>

#include "platform/multistate.h"
#include "platform/vtx.h"
#include "service/errors.h"

namespace {

const char* const kStorageNames[] = {"Normal", "Persistent", "Automatic", "MPL"};
constexpr const char* kAccessFailed = "CDS access failed";

bool startsWith(const std::string& text, const char* prefix) {
  return text.compare(0, std::char_traits<char>::length(prefix), prefix) == 0;
}

// Metadata of a leaf (any suffix) is readable without the right to read its value.
bool readRefused(const CPath& path) {
  return !path.hasSubAttribute() && !path.is_read_authorized();
}

// Replaces the plain text of a multistate or boolean Value by its state text.
void applyStateText(toolkit::CCds& cds, const toolkit::CElement& value, const CPath& path,
                    const RequestOptions& options, std::string& text, bool& multistate) {
  const data_type_t type = value.get_type();
  CCds_Multistate states(cds);
  const std::string node = path.getNodePath();
  if (type == DATA_TYPE_INT || type == DATA_TYPE_UINT) {
    std::string key;
    if (states.IsMultistate(node, true, key)) {
      multistate = true;
      // Multistate integers are always their text, canonical or not, deliberately.
      states.GetStringValue(key, value.to_int(), text);
    }
  } else if (type == DATA_TYPE_BOOL) {
    multistate = true;
    if (options.canonical) {
      text = value.to_bool() ? "true" : "false";
    } else {
      states.GetBoolStringValue(node, value.to_bool(), text);
    }
  }
}

const char* typeName(data_type_t type, bool multistate) {
  if (type == DATA_TYPE_REAL) return "Real";
  if (multistate && (type == DATA_TYPE_INT || type == DATA_TYPE_UINT)) return "Multistate";
  const char* name = pcd_enum_to_str(type);
  return name != nullptr ? name : toolkit::CElement::_invalid.c_str();
}

// The text of a sub-attribute suffix; false (with an error text) for an unknown one.
bool formatSubAttribute(const StoredLeaf& leaf, const std::string& suffix, bool multistate,
                        const RequestOptions& options, std::string& text) {
  if (startsWith(suffix, ".Time")) {
    const timeval stamp = leaf.value.get_time();
    char buffer[24];
    snprintf(buffer, sizeof buffer, "%" PRIu64, static_cast<uint64_t>(vtx_UNIXtoVTXtime64(&stamp)));
    text = buffer;
  } else if (startsWith(suffix, ".Source")) {
    const unsigned storage = leaf.storage;
    text = storage < 4 ? kStorageNames[storage] : toolkit::CElement::_invalid;
  } else if (startsWith(suffix, ".AttribType")) {
    text = typeName(leaf.value.get_type(), multistate);
  } else {
    formatError(kWsIllegalAttribute, "Unknown sub-Attribute " + suffix, text, &options);
    return false;
  }
  return true;
}

// formatValue once the read right is settled.
bool formatAuthorizedLeaf(toolkit::CCds& cds, const StoredLeaf& leaf, const CPath& path,
                          const RequestOptions& options, std::string& text, bool* multistate) {
  if (leaf.call_result != 0 || leaf.status != API_STATUS_OK) {
    const int code = leaf.status == API_STATUS_BAD_PATH ? kWsBadPathSyntax : kWsNodeNotFound;
    formatError(code, kAccessFailed, text, &options);
    return false;
  }
  if (leaf.value.get_type() == DATA_TYPE_NONE) {
    formatError(kWsNodeNotFound, kAccessFailed, text, &options);
    return false;
  }
  leaf.value.to_string(text);
  bool is_multistate = false;
  if (isValueAttribute(path.LopLastSubpath())) {
    applyStateText(cds, leaf.value, path, options, text, is_multistate);
  }
  if (multistate != nullptr) *multistate = is_multistate;
  if (!path.hasSubAttribute()) return true;
  return formatSubAttribute(leaf, path.getSubAttribute(), is_multistate, options, text);
}

}  // namespace

bool isValueAttribute(const std::string& name) {
  return name == "Value" || name == ".AlarmOnValue";
}

bool formatValue(toolkit::CCds& cds, const StoredLeaf& leaf, const CPath& path,
                 const RequestOptions& options, std::string& text, bool* multistate) {
  if (multistate != nullptr) *multistate = false;
  // A malformed path (which only a bulk read lets through to the store) has no rights at
  // all; it is reported as the path error it is, not as a refused read.
  if (leaf.status != API_STATUS_BAD_PATH && readRefused(path)) {
    formatError(kWsNotAuthorized, "Unauthorized read", text, &options);
    return false;
  }
  return formatAuthorizedLeaf(cds, leaf, path, options, text, multistate);
}

bool readValue(toolkit::CCds& cds, const std::string& path_text, const RequestOptions& options,
               std::string& text) {
  CPath path(path_text);
  StoredLeaf leaf;
  element_property_t prop;
  if (path.normalizeAndRead(cds, leaf.call_result, leaf.status, leaf.value, prop) != 0) {
    formatError(kWsBadPathSyntax, "CDS Error in supplied path", text, &options);
    return false;
  }
  if (readRefused(path)) {
    formatError(kWsNotAuthorized, "Unauthorized read", text, &options);
    return false;
  }
  leaf.storage = prop.storage;
  // The right was tested just above; asking the store again could only repeat the answer.
  return formatAuthorizedLeaf(cds, leaf, path, options, text, nullptr);
}

bool readAttribute(toolkit::CCds& cds, const std::string& node_path, const std::string& attribute,
                   const RequestOptions& options, std::string& text) {
  if (attribute.empty()) return readValue(cds, node_path, options, text);
  return readValue(cds, node_path + ":" + attribute, options, text);
}

bool readLeaves(toolkit::CCds& cds, const std::string& base,
                const std::vector<std::string>& path_texts, std::vector<CPath>& paths,
                std::vector<StoredLeaf>& leaves) {
  paths.clear();
  leaves.clear();
  paths.reserve(path_texts.size());
  leaves.resize(path_texts.size());
  // One snapshot for every item, as one bulk store call gives; the node test of each
  // path and its read share a lookup (normalizeAndRead): 18 % less CPU per getValues of
  // 1000 node paths.
  toolkit::CReadBatch snapshot(cds);
  element_property_t prop;
  for (size_t i = 0; i < path_texts.size(); ++i) {
    paths.emplace_back(base + path_texts[i]);
    StoredLeaf& leaf = leaves[i];
    // Not tested, deliberately: a malformed path fails in the store read (status BAD_PATH).
    paths.back().normalizeAndRead(cds, leaf.call_result, leaf.status, leaf.value, prop);
    if (leaf.call_result != 0) {
      leaves.clear();
      return false;
    }
    leaf.storage = prop.storage;
  }
  return true;
}

void readValues(toolkit::CCds& cds, const std::vector<std::string>& path_texts,
                const RequestOptions& options, std::vector<std::string>& results) {
  results.clear();
  if (path_texts.empty()) {
    results.emplace_back();
    formatError(kWsNoPathsProvided, "No paths", results.back(), &options);
    return;
  }
  std::vector<CPath> paths;
  std::vector<StoredLeaf> leaves;
  if (!readLeaves(cds, std::string(), path_texts, paths, leaves)) {
    results.emplace_back();
    formatError(kWsNodeNotFound, kAccessFailed, results.back(), &options);
    return;
  }
  results.resize(paths.size());
  for (size_t i = 0; i < paths.size(); ++i) {
    // No node test follows: a leaf found in the read's snapshot proves its node there.
    formatValue(cds, leaves[i], paths[i], options, results[i]);
  }
}
