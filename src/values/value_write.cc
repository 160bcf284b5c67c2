// The single write core.
#include "values/value_write.h"

#include <cstdio>

#include "platform/multistate.h"
#include "platform/path.h"
#include "service/errors.h"
#include "values/value_read.h"
#include "values/write_checks.h"
#include "values/writer_source.h"

namespace {

// Converts the client's text in `value` for the leaf at `path` of stored type `type`.
// Returns false with the error in `result`; `multistate` tells that the text matched one of
// the node's state texts.
bool convertForLeaf(toolkit::CCds& cds, const CPath& path, data_type_t type,
                    const RequestOptions& options, toolkit::CElement& value, bool& multistate,
                    std::string& result) {
  const std::string name = path.getPathAttribute();
  const std::string text = value.to_string();
  multistate = false;
  if ((type == DATA_TYPE_BOOL || type == DATA_TYPE_INT || type == DATA_TYPE_UINT) &&
      isValueAttribute(name)) {
    CCds_Multistate states(cds);
    toolkit::CElement matched = value;
    const int failed = states.StringToMultiValue(path.getPath(), type, text, matched, multistate);
    if (!multistate) return convertText(value, type, options, result);
    if (failed != 0) {
      formatError(kWsBadValueFormat, "Cannot find PossibleValue match to write", result, &options);
      return false;
    }
    value = matched;
    result = text;
    return true;
  }
  if (type != DATA_TYPE_NONE) {
    fprintf(stderr, "pcd_setValue: %s had type = %d \n", path.getPath().c_str(), type);
    if (type == DATA_TYPE_STRING) {
      result = text;
      return true;
    }
    return convertText(value, type, options, result);
  }
  // A new leaf (maintenance writes only): typed by its attribute name.
  data_type_t new_type = attributeType(name);
  if (new_type == DATA_TYPE_VALUE_TYPE) {
    new_type = storedType(cds, path.getNewPathStr("Value"));
    if (new_type == DATA_TYPE_NONE) new_type = DATA_TYPE_INT;
  }
  if (new_type == DATA_TYPE_STRING || new_type == DATA_TYPE_NONE) {
    result = text;
    return true;
  }
  return convertText(value, new_type, options, result);
}

// Gives the node's Value and .AlarmOnValue the type named by `type_name`, converting their
// current values (through the node's state texts for the Multistate and Boolean names).
// Integer leaves are deliberately left alone. A leaf that does not convert keeps its type.
void retypeValueLeaves(toolkit::CCds& cds, const CPath& path, const std::string& type_name,
                       const std::string& source) {
  bool by_texts = false;
  const data_type_t new_type = valueTypeFromName(type_name, by_texts);
  CCds_Multistate states(cds);
  for (const char* leaf : {"Value", ".AlarmOnValue"}) {
    const std::string leaf_path = path.getNewPathStr(leaf);
    api_status_t status = API_STATUS_UNKNOWN;
    toolkit::CElement current;
    element_property_t prop;
    if (cds.get_leaf(leaf_path, status, current, prop) != 0 || status != API_STATUS_OK) continue;
    const data_type_t type = current.get_type();
    if (type == DATA_TYPE_NONE || type == DATA_TYPE_INT || type == new_type) continue;
    toolkit::CElement converted = current;
    if (by_texts) {
      bool multistate = false;
      if (states.StringToMultiValue(leaf_path, new_type, current.to_string(), converted,
                                    multistate) != 0) {
        continue;
      }
    } else if (converted.convert_type(new_type) != 0) {
      continue;
    }
    cds.set_leaf(leaf_path, converted, status, prop.storage == STORAGE_PERSISTENT, source);
  }
}

}  // namespace

int writeValue(toolkit::CCds& cds, const std::string* path_text, const std::string* text,
               const RequestOptions& options, bool maintenance, std::string& result) {
  result.clear();
  if (path_text == nullptr) {
    formatError(kWsBadPathSyntax, "No Path provided", result, &options);
    return 0;
  }
  if (text == nullptr) {
    formatError(kWsBadValueFormat, "No Value provided", result, &options);
    return 0;
  }
  CPath path(*path_text);
  if (path.normalize() != 0) {
    formatError(kWsBadPathSyntax, "CDS Error in supplied path", result, &options);
    return 0;
  }
  if (!path.is_write_authorized()) return kWriteUnauthorized;
  data_type_t type = DATA_TYPE_NONE;
  if (!checkWritable(cds, path, maintenance, *text, options, type, result)) return 0;

  toolkit::CElement value(*text);
  value.set_time(writeTimeStamp());
  const std::string source = writerSource();
  bool multistate = false;
  if (!convertForLeaf(cds, path, type, options, value, multistate, result)) return 0;
  if (maintenance && path.getPathAttribute() == "ValueType") {
    // The type lives in the Value itself; the ValueType leaf is deliberately not written.
    retypeValueLeaves(cds, path, *text, source);
    result = *text;
    return 0;
  }
  api_status_t status = API_STATUS_UNKNOWN;
  if (cds.set_leaf(path.getPath(), value, status, options.persist, source) != 0 ||
      status != API_STATUS_OK) {
    formatError(kWsWriteFailed, "CDS write access failed", result, &options);
    return 0;
  }
  if (multistate) {
    result = *text;
  } else {
    value.to_string(result);
  }
  return 0;
}

bool checkWriteLists(const std::vector<std::string>& paths, const std::vector<std::string>& values,
                     const RequestOptions* options, std::string& error) {
  if (paths.empty()) {
    formatError(kWsNoPathsProvided, "No Paths provided", error, options);
  } else if (values.empty()) {
    formatError(kWsEmptyArray, "No Values provided", error, options);
  } else if (paths.size() != values.size()) {
    formatError(kWsIndexOutOfRange, "Mismatched array sizes", error, options);
  } else {
    return true;
  }
  return false;
}
