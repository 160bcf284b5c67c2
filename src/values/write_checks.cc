#include "values/write_checks.h"

#include <strings.h>

#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>

#include "platform/vtx.h"
#include "service/errors.h"

namespace {

struct AttributeType {
  const char* name;
  data_type_t type;
};

const AttributeType kAttributeTypes[] = {
    {"Writable", DATA_TYPE_BOOL},
    {"Minimum", DATA_TYPE_VALUE_TYPE},
    {"Maximum", DATA_TYPE_VALUE_TYPE},
    {"Resolution", DATA_TYPE_VALUE_TYPE},
    {"MaximumLength", DATA_TYPE_UINT},
    {"IsMultiLine", DATA_TYPE_BOOL},
    {"Overriden", DATA_TYPE_BOOL},  // spelled so in every gateway's store
    {"HasHistory", DATA_TYPE_BOOL},
    {"HasDynamicChildren", DATA_TYPE_BOOL},
    {".AlarmOnValue", DATA_TYPE_VALUE_TYPE},
    {".AlarmEnabled", DATA_TYPE_BOOL},
    {".AutoClosing", DATA_TYPE_BOOL},
    {".Critical", DATA_TYPE_BOOL},
    {".NotifyDeadband", DATA_TYPE_VALUE_TYPE},
    {".NotifyMinChange", DATA_TYPE_VALUE_TYPE},
    {".NotifyMaxChange", DATA_TYPE_VALUE_TYPE},
    {".HiCriticalLimit", DATA_TYPE_VALUE_TYPE},
    {".HiCautionaryLimit", DATA_TYPE_VALUE_TYPE},
    {".LowCautionaryLimit", DATA_TYPE_VALUE_TYPE},
    {".LowCriticalLimit", DATA_TYPE_VALUE_TYPE},
    {".Hysteresis", DATA_TYPE_VALUE_TYPE},
    {".BasePriority", DATA_TYPE_UINT},
    {".Quality", DATA_TYPE_UINT},
    {".PollRate", DATA_TYPE_UINT},
    {".NotifyMaxInterval", DATA_TYPE_UINT},
};

const char* const kAutomaticAttributes[] = {"Attributes", "Children", "ValueAge",
                                            "SinglyWritableLocales", "InAlarm"};
// Attributes that the gateway sets to false by itself.
const char* const kSelfClearingAttributes[] = {"IsMultiLine", "Writable", "HasHistory"};
const char* const kLimitAttributes[] = {".HiCriticalLimit", ".LowCriticalLimit",
                                        ".HiCautionaryLimit", ".LowCautionaryLimit"};

template <size_t N>
bool isOneOf(const std::string& name, const char* const (&names)[N]) {
  for (const char* candidate : names) {
    if (name == candidate) return true;
  }
  return false;
}

bool nodeIsWritable(toolkit::CCds& cds, const CPath& path) {
  api_status_t status = API_STATUS_UNKNOWN;
  toolkit::CElement writable;
  element_property_t prop;
  return cds.get_leaf(path.getNewPathStr("Writable"), status, writable, prop) == 0 &&
         status == API_STATUS_OK && writable.to_bool();
}

bool maintenanceWritable(const std::string& name, const std::string& text,
                         const RequestOptions& options, std::string& error) {
  if (isOneOf(name, kAutomaticAttributes)) {
    formatError(kWsIllegalAttribute, "Automatic Attribute " + name + " is not Writable", error,
                &options);
    return false;
  }
  if (text == "false" && isOneOf(name, kSelfClearingAttributes)) {
    formatError(kWsIllegalAttribute, "Attribute " + name + " is automatically set to false", error,
                &options);
    return false;
  }
  return true;
}

bool textIsInteger(const std::string& text) {
  const char* begin = text.c_str();
  char* end = nullptr;
  errno = 0;
  long number = strtol(begin, &end, 10);
  // An empty text reads as 0. 2147483647 is refused because a 32-bit strtol saturates to it
  // on overflow, and clients rely on that refusal.
  return *end == '\0' && number != INT_MAX;
}

bool textIsReal(const std::string& text) {
  const char* begin = text.c_str();
  char* end = nullptr;
  double number = strtod(begin, &end);
  return *end == '\0' && !std::isnan(number) && number <= DBL_MAX;
}

bool textFitsType(const std::string& text, data_type_t type) {
  switch (type) {
    case DATA_TYPE_BOOL:
      return strcasecmp(text.c_str(), "true") == 0 || strcasecmp(text.c_str(), "false") == 0;
    case DATA_TYPE_INT:
    case DATA_TYPE_UINT:
      return textIsInteger(text);
    case DATA_TYPE_REAL:
      return textIsReal(text);
    default:
      return true;
  }
}

// Converts `value`, whose text passed the Unsigned check, to Unsigned. A negative number
// wraps around as C converts it (and as strtoul reads it: "-1" is 4294967295); it must lie
// in the Integer range, as it must for an Integer leaf.
bool convertToUnsigned(toolkit::CElement& value) {
  toolkit::CElement number = value;
  if (number.convert_type(DATA_TYPE_INT) == 0 && number.to_int() < 0) {
    value.set_uint(static_cast<uint32_t>(number.to_int()));
    return true;
  }
  return value.convert_type(DATA_TYPE_UINT) == 0;
}

}  // namespace

bool checkWritable(toolkit::CCds& cds, const CPath& path, bool maintenance, const std::string& text,
                   const RequestOptions& options, data_type_t& leaf_type, std::string& error) {
  api_status_t status = API_STATUS_UNKNOWN;
  toolkit::CElement current;
  element_property_t prop;
  const int result = cds.get_leaf(path.getPath(), status, current, prop);
  const bool found = result == 0 && status == API_STATUS_OK;
  leaf_type = found ? current.get_type() : DATA_TYPE_NONE;
  const std::string name = path.getPathAttribute();
  if (path.hasSubAttribute()) {
    // ".Time", ".Source" and ".AttribType" describe a leaf; writing them must not quietly
    // write the leaf itself.
    formatError(kWsIllegalAttribute,
                "Attribute " + name + path.getSubAttribute() + " is not Writable", error, &options);
    return false;
  }
  if (maintenance) return maintenanceWritable(name, text, options, error);
  if (!found || leaf_type == DATA_TYPE_NONE) {
    const char* detail = status == API_STATUS_NO_NODE ? "Node does not exist" : "CDS access failed";
    formatError(kWsNodeNotFound, detail, error, &options);
    return false;
  }
  if (name == "Value") {
    if (nodeIsWritable(cds, path)) return true;
    formatError(kWsNotWritable, "Value is not Writable", error, &options);
    return false;
  }
  if (isOneOf(name, kLimitAttributes)) return true;
  formatError(kWsIllegalAttribute, "Attribute " + name + " is not Writable", error, &options);
  return false;
}

bool convertText(toolkit::CElement& value, data_type_t type, const RequestOptions& options,
                 std::string& result) {
  const std::string text = value.to_string();
  bool converted = textFitsType(text, type);
  // None and the sentinel 7 have no stored form: the text is written as it is.
  if (converted && type != DATA_TYPE_NONE && type != DATA_TYPE_VALUE_TYPE) {
    converted = type == DATA_TYPE_UINT ? convertToUnsigned(value) : value.convert_type(type) == 0;
  }
  if (!converted) {
    formatError(kWsBadValueFormat, "Could not transform " + text, result, &options);
    return false;
  }
  value.to_string(result);
  return true;
}

data_type_t attributeType(const std::string& name) {
  for (const AttributeType& entry : kAttributeTypes) {
    if (name == entry.name) return entry.type;
  }
  return DATA_TYPE_STRING;
}

data_type_t valueTypeFromName(const std::string& name, bool& multistate) {
  multistate = false;
  if (strcasecmp(name.c_str(), "Real") == 0) return DATA_TYPE_REAL;
  if (strcasecmp(name.c_str(), "Multistate") == 0) {
    multistate = true;
    return DATA_TYPE_UINT;
  }
  data_type_t type = pcd_human_str_to_enum(name.c_str());
  if (type == DATA_TYPE_NONE) return DATA_TYPE_STRING;
  multistate = type == DATA_TYPE_BOOL;
  return type;
}

data_type_t storedType(toolkit::CCds& cds, const std::string& leaf_path) {
  api_status_t status = API_STATUS_UNKNOWN;
  toolkit::CElement value;
  element_property_t prop;
  if (cds.get_leaf(leaf_path, status, value, prop) != 0 || status != API_STATUS_OK) {
    return DATA_TYPE_NONE;
  }
  return value.get_type();
}

timeval writeTimeStamp() {
  const vtx_time_t now = vtx_UTCtime(nullptr);
  timeval stamp{0, 0};
  vtx_VTXtoUNIXtime(&now, &stamp);
  return stamp;
}
