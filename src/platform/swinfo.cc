#include "platform/swinfo.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/cds.h"
#include "platform/element.h"
#include "platform/store_internal.h"

namespace {

// Writes an Integer leaf of `node`, creating the node when it is missing.
int writeIntLeaf(toolkit::CCds* cds, const std::string& node, const char* leaf, int value,
                 const std::string& source) {
  if (cds == nullptr) return -1;
  toolkit::CElement element;
  element.set_int(value);
  const std::string path = store::leaf_path(node, leaf);
  api_status_t status;
  int rc = cds->set_leaf(path, element, status, false, source);
  if (rc == 0 && status == API_STATUS_NO_NODE) {
    rc = cds->add_node(node, status, source);
    if (rc == 0 && status == API_STATUS_OK) {
      rc = cds->set_leaf(path, element, status, false, source);
    }
  }
  return rc == 0 && status == API_STATUS_OK ? 0 : -1;
}

// The type that a template's "/Value" gets: the one its "/ValueType" leaf names, String
// when it has none or names "None".
data_type_t templateValueType(const tagnval* leaves) {
  for (const tagnval* l = leaves; l != nullptr && l->tag != nullptr; ++l) {
    if (std::strcmp(l->tag, "/ValueType") == 0) {
      data_type_t type = pcd_human_str_to_enum(l->val);
      return type == DATA_TYPE_NONE ? DATA_TYPE_STRING : type;
    }
  }
  return DATA_TYPE_STRING;
}

}  // namespace

int CCds_SwInfo::SetAppStatus(AppStatuses status) {
  return writeIntLeaf(cds_, path_, "AppStatus", status, source_);
}

int CCds_SwInfo::SetAppError(AppErrors error) {
  return writeIntLeaf(cds_, path_, "AppError", error, source_);
}

int CCds_SwInfo::FillSwInfoNode(const swinfo_template_t& tmpl) {
  if (cds_ == nullptr) return -1;
  const std::string node = path_ + (tmpl.node != nullptr ? tmpl.node : "");
  api_status_t status;
  if (cds_->add_node(node, status, source_) != 0 || status != API_STATUS_OK) return -1;
  const data_type_t value_type = templateValueType(tmpl.leaves);
  std::vector<std::string> paths;
  std::vector<toolkit::CElement> values;
  for (const tagnval* l = tmpl.leaves; l != nullptr && l->tag != nullptr; ++l) {
    toolkit::CElement value(l->val != nullptr ? l->val : "");
    if (std::strcmp(l->tag, "/Value") == 0) {
      if (value.convert_type(value_type) != 0) return -1;
    } else if (value.to_string() == "true" || value.to_string() == "false") {
      value.convert_type(DATA_TYPE_BOOL);
    }
    paths.push_back(node + l->tag);
    values.push_back(value);
  }
  std::vector<api_status_t> statuses;
  if (cds_->set_leaves(paths, values, std::vector<char>(paths.size(), 0), statuses, source_) != 0) {
    return -1;
  }
  for (api_status_t s : statuses) {
    if (s != API_STATUS_OK) return -1;
  }
  return 0;
}

int CCds_SwInfo::SetIntValue(const char* suffix, int value) {
  return writeIntLeaf(cds_, path_ + (suffix != nullptr ? suffix : ""), "Value", value, source_);
}

int CCds_SwInfo::UpdateIntValue(const char* suffix, int increment) {
  if (cds_ == nullptr) return -1;
  const std::string node = path_ + (suffix != nullptr ? suffix : "");
  api_status_t status;
  toolkit::CElement value;
  element_property_t prop;
  int current = 0;
  if (cds_->get_leaf(store::leaf_path(node, "Value"), status, value, prop) == 0 &&
      status == API_STATUS_OK) {
    current = value.to_int();
  }
  // Wraps like the 32-bit counter it is rather than overflowing.
  int next = static_cast<int>(static_cast<unsigned>(current) + static_cast<unsigned>(increment));
  return writeIntLeaf(cds_, node, "Value", next, source_);
}

void CCds_SwInfo::PrintString(const std::string& text) {
  std::string line = text;
  while (!line.empty() && line.back() == '\n') line.pop_back();
  std::fprintf(stderr, "%s\n", line.c_str());
  if (cds_ != nullptr) {
    cds_->syslog_add(std::string(store::last_component(path_)), SYSLOG_INFO, line, "");
  }
}
