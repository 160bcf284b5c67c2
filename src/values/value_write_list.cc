// The list write core: every pair is checked and converted on its own, then all that are
// still to be written go to the store in one call.
#include <algorithm>
#include <string_view>
#include <unordered_map>

#include "platform/multistate.h"
#include "platform/path.h"
#include "service/errors.h"
#include "values/value_read.h"
#include "values/value_write.h"
#include "values/write_checks.h"
#include "values/writer_source.h"

namespace {

struct WriteItem {
  CPath path;
  std::string text;                   // the client's text
  data_type_t type = DATA_TYPE_NONE;  // the stored leaf's type, or the one ValueType gives
  toolkit::CElement value;
  bool pending = true;  // still to be written
  std::string result;
  bool client_text = false;  // the result is the client's text, not the stored one
};

class ListWriter {
 public:
  ListWriter(toolkit::CCds& cds, const RequestOptions& options) : cds_(cds), options_(options) {}

  // Makes the items; false when a path lacks the write right.
  bool makeItems(const std::vector<std::string>& paths, const std::vector<std::string>& values);
  void checkItems(bool maintenance);
  void applyValueTypes();
  void indexItems();
  void convertItems();
  void writeItems();
  void takeResults(std::vector<std::string>& results);

 private:
  // The last pending item that writes the WritableValues leaf `list_path`, or null.
  const WriteItem* pendingListItemFor(const std::string& list_path);
  // The node's writable-values list: a pending item that writes it, else the store's leaf
  // when it holds more than two characters, else "".
  std::string writableValues(const WriteItem& item);
  void convertValue(WriteItem& item);
  void convertAttribute(WriteItem& item);
  void fail(WriteItem& item, int code, const std::string& detail);

  toolkit::CCds& cds_;
  const RequestOptions& options_;
  std::vector<WriteItem> items_;
  // Look-ups of the conversion pass, so that a long list costs one per item. indexItems makes
  // them when the items' paths and types are final, keyed by the items' own path texts:
  // the items that write a WritableValues leaf and were pending then, in item order;
  std::unordered_map<std::string_view, std::vector<const WriteItem*>> list_items_;
  // the type of the last item of each path that has one.
  std::unordered_map<std::string_view, data_type_t> path_types_;
};

bool ListWriter::makeItems(const std::vector<std::string>& paths,
                           const std::vector<std::string>& values) {
  const size_t n = std::min(paths.size(), values.size());
  items_.resize(n);
  for (size_t i = 0; i < n; ++i) {
    WriteItem& item = items_[i];
    item.path = CPath(paths[i]);
    item.text = values[i];
    item.value = toolkit::CElement(values[i]);
    if (item.path.normalize() != 0) {
      fail(item, kWsBadPathSyntax, "CDS Error in supplied path");
    } else if (!item.path.is_write_authorized()) {
      return false;
    }
  }
  return true;
}

void ListWriter::checkItems(bool maintenance) {
  for (WriteItem& item : items_) {
    if (!item.pending) continue;
    item.pending =
        checkWritable(cds_, item.path, maintenance, item.text, options_, item.type, item.result);
  }
}

void ListWriter::applyValueTypes() {
  // The type each Value and .AlarmOnValue path takes; a later ValueType item of a node wins.
  std::unordered_map<std::string, data_type_t> types;
  for (WriteItem& type_item : items_) {
    if (!type_item.pending || type_item.path.getPathAttribute() != "ValueType") continue;
    bool multistate = false;
    const data_type_t type = valueTypeFromName(type_item.text, multistate);
    types[type_item.path.getNewPathStr("Value")] = type;
    types[type_item.path.getNewPathStr(".AlarmOnValue")] = type;
    // The type lives in the Value itself; the ValueType leaf is deliberately not written.
    type_item.pending = false;
    type_item.result = type_item.text;
  }
  if (types.empty()) return;
  for (WriteItem& item : items_) {
    const auto found = types.find(item.path.getPath());
    if (found != types.end()) item.type = found->second;
  }
}

void ListWriter::indexItems() {
  for (const WriteItem& item : items_) {
    const std::string& path = item.path.getPath();
    if (item.pending && item.path.getPathAttribute() == "WritableValues") {
      list_items_[path].push_back(&item);
    }
    if (item.type != DATA_TYPE_NONE) path_types_[path] = item.type;
  }
}

const WriteItem* ListWriter::pendingListItemFor(const std::string& list_path) {
  const auto found = list_items_.find(list_path);
  if (found == list_items_.end()) return nullptr;
  // Items only ever stop being pending, so one that has stopped is dropped for good.
  std::vector<const WriteItem*>& candidates = found->second;
  while (!candidates.empty() && !candidates.back()->pending) candidates.pop_back();
  return candidates.empty() ? nullptr : candidates.back();
}

std::string ListWriter::writableValues(const WriteItem& item) {
  const std::string list_path = item.path.getNewPathStr("WritableValues");
  if (const WriteItem* list_item = pendingListItemFor(list_path)) return list_item->text;
  api_status_t status = API_STATUS_UNKNOWN;
  toolkit::CElement list;
  element_property_t prop;
  if (cds_.get_leaf(list_path, status, list, prop) == 0 && status == API_STATUS_OK) {
    std::string text = list.to_string();
    if (text.size() > 2) return text;
  }
  return std::string();
}

void ListWriter::convertValue(WriteItem& item) {
  CCds_Multistate states(cds_);
  const std::string list = writableValues(item);
  if (item.type == DATA_TYPE_BOOL) {
    bool state = false;
    // Without a list the store's own boolean texts apply, deliberately.
    if (states.GetBoolFromString(list.empty() ? "null" : list, item.text, state) != 0) {
      fail(item, kWsBadValueFormat, "Cannot find bool match to write");
      return;
    }
    item.value.set_bool(state);
    item.client_text = true;
  } else if ((item.type == DATA_TYPE_INT || item.type == DATA_TYPE_UINT) && !list.empty()) {
    int number = 0;
    if (states.GetEnumValue(list, item.text, number) != 0 ||
        (item.type == DATA_TYPE_UINT && number < 0)) {
      fail(item, kWsBadValueFormat, "Cannot find PossibleValue match to write");
      return;
    }
    if (item.type == DATA_TYPE_INT) {
      item.value.set_int(number);
    } else {
      item.value.set_uint(static_cast<uint32_t>(number));
    }
    item.client_text = true;
  } else if (item.type == DATA_TYPE_INT || item.type == DATA_TYPE_UINT ||
             item.type == DATA_TYPE_REAL || item.type == DATA_TYPE_INT64 ||
             item.type == DATA_TYPE_UINT64) {
    item.pending = convertText(item.value, item.type, options_, item.result);
  }
  // Any other type is written as the client's text.
}

void ListWriter::convertAttribute(WriteItem& item) {
  data_type_t type = item.type;
  if (type == DATA_TYPE_NONE) type = attributeType(item.path.getPathAttribute());
  if (type == DATA_TYPE_VALUE_TYPE) {
    const std::string value_path = item.path.getNewPathStr("Value");
    const auto value_item = path_types_.find(value_path);
    const data_type_t value_type =
        value_item != path_types_.end() ? value_item->second : storedType(cds_, value_path);
    if (value_type != DATA_TYPE_NONE) type = value_type;
  }
  if (type == DATA_TYPE_NONE) type = DATA_TYPE_STRING;
  item.pending = convertText(item.value, type, options_, item.result);
}

void ListWriter::convertItems() {
  for (WriteItem& item : items_) {
    if (!item.pending) continue;
    if (isValueAttribute(item.path.getPathAttribute())) {
      convertValue(item);
    } else {
      convertAttribute(item);
    }
  }
}

void ListWriter::writeItems() {
  std::vector<std::string> paths;
  std::vector<toolkit::CElement> values;
  std::vector<WriteItem*> written;
  const timeval stamp = writeTimeStamp();
  for (WriteItem& item : items_) {
    if (!item.pending) continue;
    item.value.set_time(stamp);
    paths.push_back(item.path.getPath());
    values.push_back(item.value);
    written.push_back(&item);
  }
  if (written.empty()) return;
  std::vector<char> persist(written.size(), options_.persist ? 1 : 0);
  std::vector<api_status_t> statuses;
  const int call = cds_.set_leaves(paths, values, persist, statuses, writerSource());
  for (size_t i = 0; i < written.size(); ++i) {
    WriteItem& item = *written[i];
    if (call != 0 || i >= statuses.size() || statuses[i] != API_STATUS_OK) {
      fail(item, kWsWriteFailed, "CDS write access failed");
    } else if (item.client_text) {
      item.result = item.text;
    } else {
      item.value.to_string(item.result);
    }
  }
}

void ListWriter::takeResults(std::vector<std::string>& results) {
  results.clear();
  results.reserve(items_.size());
  for (WriteItem& item : items_) results.push_back(std::move(item.result));
}

void ListWriter::fail(WriteItem& item, int code, const std::string& detail) {
  item.pending = false;
  formatError(code, detail, item.result, &options_);
}

}  // namespace

int writeValues(toolkit::CCds& cds, const std::vector<std::string>& paths,
                const std::vector<std::string>& values, const RequestOptions& options,
                bool maintenance, std::vector<std::string>& results) {
  results.clear();
  ListWriter writer(cds, options);
  if (!writer.makeItems(paths, values)) return kWriteUnauthorized;
  writer.checkItems(maintenance);
  writer.applyValueTypes();
  writer.indexItems();
  writer.convertItems();
  writer.writeItems();
  writer.takeResults(results);
  return 0;
}
