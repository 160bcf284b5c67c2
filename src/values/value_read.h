// Reading values: the single read, the attribute read, the bulk read and the value formatting
// that turns a stored leaf into the text a client sees. Every function reports its errors as
// result texts made by formatError under the request's options; none of them throws.
#ifndef WSGATE_VALUES_VALUE_READ_H
#define WSGATE_VALUES_VALUE_READ_H

#include <string>
#include <vector>

#include "platform/cds.h"
#include "platform/element.h"
#include "platform/path.h"
#include "service/options.h"

// One leaf as a store read returned it.
struct StoredLeaf {
  int call_result = 0;  // the int the store call returned (0: the call worked)
  api_status_t status = API_STATUS_UNKNOWN;
  toolkit::CElement value;
  storage_class_t storage = STORAGE_NORMAL;
};

// True for the leaves that carry a point's value, and so its state texts: "Value" and
// ".AlarmOnValue".
bool isValueAttribute(const std::string& name);

// Formats `leaf`, read at the normalized `path`, into `text`:
//  - a malformed path (status BAD_PATH): code 8 "CDS access failed";
//  - without the read right on a path without sub-attribute suffix: code 2;
//  - any other failed read, or a value without type: code 9 "CDS access failed";
//  - a "Value" or ".AlarmOnValue" leaf of a multistate node reads as its state text, a
//    boolean one as the node's own state text ("true"/"false" under `canonical`); either
//    sets `*multistate` (when not null);
//  - a suffix (matched by its beginning) ".Time" gives the time stamp in platform time,
//    ".Source" the storage class name, ".AttribType" the type name ("Real", "Multistate",
//    else the platform's name); any other suffix is code 11.
// Returns true when `text` is a value, false when it is an error text.
bool formatValue(toolkit::CCds& cds, const StoredLeaf& leaf, const CPath& path,
                 const RequestOptions& options, std::string& text, bool* multistate = nullptr);

// Reads one path given by a client: normalizes it (code 8 when malformed), refuses it without
// the read right unless it carries a sub-attribute suffix (metadata of a leaf is readable
// without the right to read its value), reads the leaf and formats it. Returns true when
// `text` is a value.
bool readValue(toolkit::CCds& cds, const std::string& path, const RequestOptions& options,
               std::string& text);

// Reads the attribute `attribute` of the node at `node_path` ("node:attribute"; the node's
// Value when `attribute` is empty) as readValue does.
bool readAttribute(toolkit::CCds& cds, const std::string& node_path, const std::string& attribute,
                   const RequestOptions& options, std::string& text);

// Normalizes each of `path_texts` (prefixed with `base`) into `paths` and reads all of them
// in one snapshot of the store into `leaves` (both replaced, one entry per text, in order).
// Malformed paths are not refused here; they fail in the read with status BAD_PATH. False
// when a store call failed.
bool readLeaves(toolkit::CCds& cds, const std::string& base,
                const std::vector<std::string>& path_texts, std::vector<CPath>& paths,
                std::vector<StoredLeaf>& leaves);

// Reads every path in one store call and puts one text per path, in order, into `results`
// (replaced). Malformed paths are not refused here; they fail in the store read. An empty
// list gives the one text code 17 "No paths"; a failed store call the one text code 9.
void readValues(toolkit::CCds& cds, const std::vector<std::string>& paths,
                const RequestOptions& options, std::vector<std::string>& results);

#endif  // WSGATE_VALUES_VALUE_READ_H
