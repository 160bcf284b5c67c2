// The JSON interchange document of the `cds` tool, read by import and written by export:
//
//   {"nodes": ["/A", ...],
//    "leaves": [{"path": "/A/B/Value", "type": "Real", "value": "1.5",
//                "storage": "Normal", "time": 1700000000000}, ...],
//    "rights": [{"user": "*", "prefix": "/", "rights": "r"}, ...]}
//
// Every key is optional. A leaf's "storage" defaults to "Normal" and its "time" (platform
// time, milliseconds since 1970) to the time of the import.
#ifndef WSGATE_TOOLS_INTERCHANGE_H
#define WSGATE_TOOLS_INTERCHANGE_H

#include <string>
#include <vector>

#include "platform/cds.h"

namespace cdstool {

// A document in memory: what one CCds::import call takes.
struct Document {
  std::vector<std::string> nodes;
  std::vector<toolkit::leaf_write_t> leaves;  // a value time stamp of {0, 0} means "now"
  std::vector<toolkit::right_rule_t> rights;
};

// Reads a document from JSON text. Every value is converted to its leaf's type here, so
// that a bad item is found before anything is written. Returns false with `error` naming
// the offending item ("leaves[2] (/A/Value): \"x\" is not a valid Real") when the text is
// not a valid document.
bool parseDocument(const std::string& json_text, Document& doc, std::string& error);

// Writes a document as JSON text (keys in the order shown above, two-space indents, a
// final newline). Every leaf carries its storage and time.
std::string documentJson(const Document& doc);

// Fills `doc` with the subtree at `node`: its nodes in path order, their stored leaves in
// name order, and the rights rules whose prefix lies in the subtree. Throws
// OperationError when the node does not exist or the store cannot be read.
void collectSubtree(toolkit::CCds& cds, const std::string& node, Document& doc);

// Writes the whole document in one transaction (CCds::import). Throws OperationError
// with the store's text naming the failed item; nothing is changed then.
void importDocument(toolkit::CCds& cds, const Document& doc, const std::string& source);

// True when `letters` holds only rights letters "r", "w", "d", "x", each at most once.
bool validRights(const std::string& letters);

}  // namespace cdstool

#endif  // WSGATE_TOOLS_INTERCHANGE_H
