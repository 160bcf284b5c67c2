// The checks and conversions that both write cores share: may a leaf be written, what type
// does a text become, and which type does a new attribute leaf get.
#ifndef WSGATE_VALUES_WRITE_CHECKS_H
#define WSGATE_VALUES_WRITE_CHECKS_H

#include <sys/time.h>

#include <string>

#include "platform/cds.h"
#include "platform/element.h"
#include "platform/path.h"
#include "service/options.h"

// Decides whether the leaf at the normalized `path` may take `text`; `leaf_type` receives
// the type of the leaf in the store (DATA_TYPE_NONE when it is missing).
//  - A path with a sub-attribute suffix (".Time") is never written (code 11).
//  - Normal writes (`maintenance` false) need an existing leaf (else code 9), and then pass
//    only a "Value" whose node's "Writable" reads true (else code 15) and the four limit
//    leaves; every other attribute is code 11.
//  - Maintenance writes may create leaves; they refuse the automatic attributes and the
//    text "false" for IsMultiLine, Writable and HasHistory (code 11).
// Returns true when the write may go on; otherwise `error` holds the error text.
bool checkWritable(toolkit::CCds& cds, const CPath& path, bool maintenance, const std::string& text,
                   const RequestOptions& options, data_type_t& leaf_type, std::string& error);

// Converts `value` (a string element holding the client's text) in place to `type` after
// checking the text: Boolean takes "true"/"false" in any case; Integer and Unsigned a whole
// decimal number other than 2147483647 (refused, deliberately: it is what an overflowing read
// saturates to; -2147483648 passes), the empty text being 0, and a negative number for
// Unsigned wraps around ("-1" is 4294967295); Real a whole number up to the
// largest double (not NaN; -inf passes), the empty text being 0. Other types are not checked.
// Types that are never stored (None, the sentinel 7) leave the text as it is.
// Returns true on success with `result` holding the value's new text; otherwise `result` is
// code 12 "Could not transform " + text.
bool convertText(toolkit::CElement& value, data_type_t type, const RequestOptions& options,
                 std::string& result);

// The type that the attribute `name` gets when it is written without an existing leaf:
// a fixed table (exact, case-sensitive names), DATA_TYPE_VALUE_TYPE (7) for attributes that
// take the type of the node's Value, DATA_TYPE_STRING for every name not in the table.
data_type_t attributeType(const std::string& name);

// A type name written to "ValueType": "Real" and "Multistate" (any case) first, then the
// platform's names; an unknown name is String. `multistate` is set for "Multistate" and for
// the Boolean type.
data_type_t valueTypeFromName(const std::string& name, bool& multistate);

// The type of the stored leaf at `leaf_path`; DATA_TYPE_NONE when it cannot be read.
data_type_t storedType(toolkit::CCds& cds, const std::string& leaf_path);

// The time stamp of a write made now.
timeval writeTimeStamp();

#endif  // WSGATE_VALUES_WRITE_CHECKS_H
