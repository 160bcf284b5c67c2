// Arrays: list-valued attribute leaves ("Children", "PossibleValues", ...) read as one text
// and split into items with the store's list splitter.
#ifndef WSGATE_VALUES_ARRAY_READ_H
#define WSGATE_VALUES_ARRAY_READ_H

#include <cstdint>
#include <string>
#include <vector>

#include "platform/cds.h"
#include "service/options.h"

// Reads the array at `path` (null: no path given) into `items` (replaced). Errors come back
// as a list of one error text: code 8 without a path, code 24 when the path's attribute is
// not an array attribute, else those of readValue. A read whose text begins with "?" or,
// when errorPrefix is set, with errorPrefix counts as an error text and is not split.
// The array attributes are tested as substrings of one list text, deliberately, so "Value",
// "Child" and an empty name pass too.
void readArray(toolkit::CCds& cds, const std::string* path, const RequestOptions& options,
               std::vector<std::string>& items);

// Narrows `items`, as readArray left them, to `count` items from `index` (0-based):
//  - a single item that begins with errorPrefix is left alone (taken as an error text);
//  - an index at or beyond the end gives the one text code 14;
//  - otherwise the range ends at index + count - 1 in unsigned 32-bit arithmetic, clamped
//    to the last item, so a count of 0 deliberately gives all items from index 0 and the
//    first `index` items from any other index.
void selectArrayRange(std::vector<std::string>& items, uint32_t index, uint32_t count,
                      const RequestOptions& options);

// The size text of `items`, as readArray left them: a single item that begins with
// errorPrefix is returned as it stands (so a one-item array deliberately answers its item
// when errorPrefix is not set), otherwise the item count in decimal.
std::string arraySizeText(const std::vector<std::string>& items, const RequestOptions& options);

#endif  // WSGATE_VALUES_ARRAY_READ_H
