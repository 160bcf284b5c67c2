#include "platform/connxns.h"

#include <vector>

#include "platform/cds.h"
#include "platform/element.h"
#include "platform/store_internal.h"

namespace {

// A connection number names one node below the Connections node.
bool validNumber(const std::string& number) {
  return !number.empty() && number.find('/') == std::string::npos;
}

}  // namespace

int CCDS_Connxns::AddConnxn(const std::string& number, const std::string& address,
                            const std::string& host, const std::string& user) {
  if (writer_ == nullptr || !validNumber(number)) return -1;
  const std::string node = store::leaf_path(path_, number);
  api_status_t status;
  if (writer_->add_node(node, status, "") != 0 || status != API_STATUS_OK) return -1;
  std::vector<std::string> paths = {store::leaf_path(node, "Address"),
                                    store::leaf_path(node, "Host"), store::leaf_path(node, "User")};
  std::vector<toolkit::CElement> values = {toolkit::CElement(address), toolkit::CElement(host),
                                           toolkit::CElement(user)};
  std::vector<api_status_t> statuses;
  if (writer_->set_leaves(paths, values, {0, 0, 0}, statuses, "") != 0) return -1;
  for (api_status_t s : statuses) {
    if (s != API_STATUS_OK) return -1;
  }
  return 0;
}

int CCDS_Connxns::RemoveConnxn(const std::string& number) {
  if (writer_ == nullptr || !validNumber(number)) return -1;
  api_status_t status;
  if (writer_->remove_node(store::leaf_path(path_, number), status, false, "") != 0) return -1;
  return status == API_STATUS_OK ? 0 : -1;
}

int CCDS_Connxns::RemoveAllConnxns() {
  if (reader_ == nullptr || writer_ == nullptr) return -1;
  std::vector<std::string> children;
  api_status_t status;
  if (reader_->list_children(path_, children, status) != 0) return -1;
  if (status == API_STATUS_NO_NODE) return 0;  // nothing was ever published
  if (status != API_STATUS_OK) return -1;
  int result = 0;
  for (const std::string& child : children) {
    if (writer_->remove_node(child, status, false, "") != 0 || status != API_STATUS_OK) {
      result = -1;
    }
  }
  return result;
}
