#include "platform/path.h"

#include <cstdlib>

#include "platform/cds.h"
#include "platform/element.h"
#include "platform/store_internal.h"

namespace {

const char kNodeNameSeparator = '.';
const char kNodeNameEscape = '\\';

// Whether `path` names an existing node, asked of the process's default connection.
bool isNode(const std::string& path) {
  pcd_handle_t handle = pcd_default_handle();
  if (handle == nullptr) return false;
  toolkit::CCds cds(handle);
  api_status_t status;
  return cds.test_node(path, status) == 0 && status == API_STATUS_OK;
}

// The node that `path` names: its node when it stands for a node's Value, the path itself
// when it is a node path, the leaf's node when it is a leaf path. Non-zero when it names
// neither.
int namedNode(const CPath& path, toolkit::CCds& cds, std::string& node) {
  if (path.isNodeValue()) {
    node = path.getNodePath();
    return 0;
  }
  std::string canonical;
  if (!store::canonicalize(path.getPath(), canonical)) return 1;
  api_status_t status;
  if (cds.test_node(canonical, status) != 0) return 1;
  if (status == API_STATUS_OK) {
    node = canonical;
    return 0;
  }
  toolkit::CElement value;
  element_property_t prop;
  if (cds.get_leaf(canonical, status, value, prop) != 0 || status != API_STATUS_OK) return 1;
  node = store::node_of(canonical);
  return 0;
}

}  // namespace

template <typename NodeTest>
int CPath::normalizeWith(NodeTest is_node) {
  // Normalizing twice gives the same path: the suffix is put back first.
  std::string text = path_ + suffix_;
  const bool was_node_value = node_value_;
  suffix_.clear();
  node_value_ = false;
  not_plain_ = false;

  size_t last_slash = text.rfind('/');
  if (last_slash == std::string::npos) return 1;
  size_t colon = text.find(':', last_slash);
  if (colon != std::string::npos) {
    if (colon + 1 == text.size()) return 1;  // "node:" names no attribute
    text[colon] = '/';
  }
  std::string canonical;
  if (!store::canonicalize(text, canonical)) return 1;
  if (canonical == "/") {
    path_ = canonical;
    return 0;
  }
  // The Value leaf the text names when it names a node: made once, for the test and the path.
  std::string value_path = store::leaf_path(canonical, "Value");
  if (is_node(canonical, value_path)) {
    path_ = std::move(value_path);
    node_value_ = true;
    return 0;
  }
  size_t slash = canonical.rfind('/');
  size_t dot = canonical.find('.', slash + 2);
  if (dot != std::string::npos) {
    suffix_ = canonical.substr(dot);
    canonical.resize(dot);
    value_path = store::leaf_path(canonical, "Value");
    if (is_node(canonical, value_path)) {
      path_ = std::move(value_path);
      node_value_ = true;
      return 0;
    }
  }
  path_ = std::move(canonical);
  node_value_ = was_node_value;
  not_plain_ = store::is_automatic(store::last_component(path_));
  return 0;
}

int CPath::normalize() {
  return normalizeWith([](const std::string& node, const std::string&) { return isNode(node); });
}

int CPath::normalizeAndRead(toolkit::CCds& cds, int& read, api_status_t& status,
                            toolkit::CElement& value, element_property_t& prop) {
  read = 0;
  bool have_read = false;
  // The node test reads the candidate node's Value: found, or missing with its node there
  // (NO_LEAF), it is a node, and that read is the one wanted. A leaf found proves its node,
  // since the store only inserts leaves into existing nodes and removes a node's leaves
  // with it. Paths checked on another connection than the default one keep the plain test.
  const bool shared = cds.handle() != nullptr && cds.handle() == pcd_default_handle();
  auto read_node_value = [&](const std::string& node, const std::string& value_path) {
    if (!shared) return isNode(node);
    if (read != 0) return false;  // the store failed: no more calls
    read = cds.get_leaf(value_path, status, value, prop);
    have_read = read != 0 || status == API_STATUS_OK || status == API_STATUS_NO_LEAF;
    return read == 0 && have_read;
  };
  const int malformed = normalizeWith(read_node_value);
  if (!have_read) read = cds.get_leaf(path_, status, value, prop);
  return malformed;
}

bool CPath::authorized(char right) const {
  pcd_handle_t handle = pcd_default_handle();
  if (handle == nullptr) return false;
  const char* user = std::getenv("REMOTE_USER");
  toolkit::CCds cds(handle);
  std::string rights;
  if (cds.rights_for(user != nullptr ? user : "", path_, rights) != 0) return false;
  return rights.find(right) != std::string::npos;
}

bool CPath::is_read_authorized() const {
  return authorized('r');
}
bool CPath::is_write_authorized() const {
  return authorized('w');
}
bool CPath::is_remove_authorized() const {
  return authorized('d');
}
bool CPath::is_reset_authorized() const {
  return authorized('x');
}

std::string CPath::getNodePath() const {
  return std::string(store::node_of(path_));
}

std::string CPath::getPathAttribute() const {
  return std::string(store::last_component(path_));
}

std::string CPath::LopLastSubpath() const {
  return getPathAttribute();
}

CPath CPath::getNewPath(const char* leaf) const {
  return CPath(getNewPathStr(leaf));
}

std::string CPath::getNewPathStr(const char* leaf) const {
  return store::leaf_path(store::node_of(path_), leaf != nullptr ? leaf : "");
}

int CPath::getChildPaths(toolkit::CCds& cds, std::vector<std::string>& children) const {
  children.clear();
  std::string node;
  if (namedNode(*this, cds, node) != 0) return 1;
  api_status_t status;
  if (cds.list_children(node, children, status) != 0 || status != API_STATUS_OK) return 1;
  return 0;
}

int CPath::getAttributeList(const std::string& attribute, toolkit::CCds& cds,
                            std::vector<std::string>& items) const {
  items.clear();
  std::string node;
  if (namedNode(*this, cds, node) != 0) return 1;
  api_status_t status;
  toolkit::CElement value;
  element_property_t prop;
  if (cds.get_leaf(store::leaf_path(node, attribute), status, value, prop) != 0 ||
      status != API_STATUS_OK) {
    return 1;
  }
  toolkit::CElement::split_string(value.to_string(), items);
  return 0;
}

void CPath::PathToNodeName(const std::string& path, std::string& name) {
  name.clear();
  name.reserve(path.size());
  // Every "/" but the leading one separates components; a path without the leading "/"
  // is taken as if it had one.
  size_t start = !path.empty() && path[0] == '/' ? 1 : 0;
  for (size_t i = start; i < path.size(); ++i) {
    char ch = path[i];
    if (ch == '/') {
      name += kNodeNameSeparator;
    } else {
      if (ch == kNodeNameSeparator || ch == kNodeNameEscape) name += kNodeNameEscape;
      name += ch;
    }
  }
}

void CPath::DottedPathToNodePath(const std::string& name, std::string& path) {
  path.assign(1, '/');
  path.reserve(name.size() + 1);
  for (size_t i = 0; i < name.size(); ++i) {
    char ch = name[i];
    if (ch == kNodeNameEscape && i + 1 < name.size()) {
      path += name[++i];
    } else if (ch == kNodeNameSeparator) {
      path += '/';
    } else {
      path += ch;
    }
  }
}
