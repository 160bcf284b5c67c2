// Data store paths: normalisation, splitting, node names and the caller's rights.
#ifndef WSGATE_PLATFORM_PATH_H
#define WSGATE_PLATFORM_PATH_H

#include <string>
#include <vector>

#include "platform/cds.h"

// A path under work. Path checks and rights use the process's default store connection
// (pcd_default_handle()); without one, normalize() still checks the syntax but cannot tell
// node paths from leaf paths, and every right is refused.
class CPath {
 public:
  CPath() = default;
  explicit CPath(const std::string& path) : path_(path) {}
  explicit CPath(const char* path) : path_(path ? path : "") {}

  // Checks and rewrites the path; returns 0 when it is good, non-zero when malformed.
  //  - it must begin with "/"; control characters fail; "//" collapses; a trailing "/"
  //    drops; "node:attr" becomes "node/attr" (a ":" only in the last component).
  //  - The last component splits at its first "." after position 0 into the leaf name and
  //    the sub-attribute suffix ("Value.Time" gives "Value" and ".Time").
  //  - A path that names an existing node stands for that node's "Value" leaf (flag
  //    isNodeValue); so does a node followed by a suffix ("/Dev/Temp.Time").
  //  - A path to an automatic attribute ("Children", "Attributes", "ValueAge") sets the
  //    not-a-plain-leaf flag.
  //  - "/" alone stays "/" (the root node) and names no leaf.
  int normalize();
  // normalize(), then the read of the leaf the path names (getPath()), the same outcome as
  // the two done apart but cheaper: when the text names a node that has a Value, the node
  // test and the read are one store lookup instead of two. For bulk reads inside the
  // caller's read batch. `read` is the store call's result (non-zero: the store failed).
  int normalizeAndRead(toolkit::CCds& cds, int& read, api_status_t& status,
                       toolkit::CElement& value, element_property_t& prop);

  // The leaf path (or node path for "/"), without the sub-attribute suffix.
  const std::string& getPath() const { return path_; }
  // The sub-attribute suffix (".Time"), or "" when the path has none.
  const std::string& getSubAttribute() const { return suffix_; }
  bool hasSubAttribute() const { return !suffix_.empty(); }
  // Flag 1: the text named a node and the path now names its Value leaf.
  bool isNodeValue() const { return node_value_; }
  // Flag 2: the path names something other than a plain stored leaf (automatic attribute).
  bool isNotPlainLeaf() const { return not_plain_; }

  // Rights of the caller (environment variable REMOTE_USER; unset is the anonymous user
  // "") on this path, from the store's rules.
  bool is_read_authorized() const;
  bool is_write_authorized() const;
  bool is_remove_authorized() const;
  bool is_reset_authorized() const;

  // The node part: everything before the last "/" ("/" for a leaf of the root).
  std::string getNodePath() const;
  // The last component: the leaf (attribute) name.
  std::string getPathAttribute() const;
  // The last component of the path, the same text as getPathAttribute.
  std::string LopLastSubpath() const;
  // A sibling: the same node with the leaf `leaf` ("Writable", "Value").
  CPath getNewPath(const char* leaf) const;
  std::string getNewPathStr(const char* leaf) const;

  // The child node paths of the node that this path names (the path itself when it is a
  // node path, else its node), in name order. Returns 0 on success.
  int getChildPaths(toolkit::CCds& cds, std::vector<std::string>& children) const;
  // Reads the list-valued attribute `attribute` ("Children", "Attributes",
  // "PossibleValues") of the node this path names and splits it. Returns 0 on success.
  int getAttributeList(const std::string& attribute, toolkit::CCds& cds,
                       std::vector<std::string>& items) const;

  // "/A/B.c/D" <-> "A.B\.c.D": components joined with ".", a "." or "\" inside a component
  // escaped with "\". Exact inverses for every path. PathToNodeName("/") is "".
  static void PathToNodeName(const std::string& path, std::string& name);
  static void DottedPathToNodePath(const std::string& name, std::string& path);

 private:
  // normalize() with is_node(node, path of its Value leaf) as the node test.
  template <typename NodeTest>
  int normalizeWith(NodeTest is_node);
  bool authorized(char right) const;

  std::string path_;
  std::string suffix_;
  bool node_value_ = false;
  bool not_plain_ = false;
};

#endif  // WSGATE_PLATFORM_PATH_H
