// The two write cores: one path and text (setValue, and the maintenance SetLeaf), and a list
// of them written in one store call (setValues, and the maintenance SetLeaves/CreateNode).
//
// With `maintenance` clear a write may only change existing leaves that the gateway lets
// clients write (a Value whose node is Writable, and the four alarm limits). With it set, a
// write may create attribute leaves (typed by the attribute type table), and a "ValueType"
// write re-types the node's Value instead of being stored.
//
// Every write is stamped with the current time and carries writerSource(). Errors of an item
// are result texts made by formatError under `options`; the cores return a service status:
// 0, or kWriteUnauthorized when the caller lacks the write right (no result is given then).
#ifndef WSGATE_VALUES_VALUE_WRITE_H
#define WSGATE_VALUES_VALUE_WRITE_H

#include <string>
#include <vector>

#include "platform/cds.h"
#include "service/options.h"

// The service status of a write refused for want of the write right.
inline constexpr int kWriteUnauthorized = 401;

// Writes `value` to `path` (either null: code 8 / code 12 into `result`). The text is matched
// against the node's PossibleValues for multistate and boolean Values ("Cannot find
// PossibleValue match to write"), otherwise converted to the leaf's type. On success
// `result` is the stored value's text, or the client's text for a multistate value.
// Writes the line "pcd_setValue: PATH had type = N" to standard error for leaves typed
// other than multistate candidates, as gateway tools expect.
int writeValue(toolkit::CCds& cds, const std::string* path, const std::string* value,
               const RequestOptions& options, bool maintenance, std::string& result);

// The list checks every list write makes first: no paths (code 17), no values (code 23),
// lists of different length (code 14). Returns true when they pass; otherwise `error` holds
// the error text (formatted without options when `options` is null).
bool checkWriteLists(const std::vector<std::string>& paths, const std::vector<std::string>& values,
                     const RequestOptions* options, std::string& error);

// Writes the pairs (paths[i], values[i]), up to the shorter list, in one store call and
// puts one result per pair into `results` (replaced). Differs from writeValue on purpose:
// Boolean and enumeration Values match their text against the node's WritableValues (an
// item of the same request that writes it, else the store's), and a "ValueType" item
// re-types the request's Value and .AlarmOnValue items of its node and is not written.
// A malformed path fails its own item; a path without the write right fails the whole
// request with kWriteUnauthorized and no results.
int writeValues(toolkit::CCds& cds, const std::vector<std::string>& paths,
                const std::vector<std::string>& values, const RequestOptions& options,
                bool maintenance, std::vector<std::string>& results);

#endif  // WSGATE_VALUES_VALUE_WRITE_H
