// Limits on the shape of a request's XML that the SOAP runtime does not enforce on our
// messages, checked on the raw bytes as they arrive, before the runtime parses them:
//
//   - attributes (namespace declarations included) in one start tag: the runtime looks up
//     every attribute among those already read, so a tag with tens of thousands of them
//     takes minutes of the only thread;
//   - child elements of one element: the runtime's list limit applies to SOAP-encoded arrays
//     only, not to repeated elements, so a message of empty list items grows lists of a
//     million entries and hundreds of megabytes;
//   - nesting depth, including markup inside text elements, which the runtime skips
//     without counting;
//   - bytes that are not UTF-8 (unless the XML declaration names another encoding): texts
//     pass through to the store and back as UTF-8 bytes, so an invalid sequence would end
//     up in an answer that is not well-formed;
//   - the NUL character, raw or as a character reference ("&#0;", "&#x00;") in text or an
//     attribute value: XML forbids it, and the runtime would hand it on as the end of the
//     text, so that "12&#0;34" would be read as "12".
//
// The scanner follows the runtime's way of skipping markup, so that nothing the runtime
// reads as tags can hide from it: comments end at "-->", processing instructions at "?>",
// CDATA sections at "]]>", other declarations ("<!DOCTYPE ...") at the first ">". A "<"
// inside an attribute value (which well-formed XML never has) starts a new tag.
#ifndef WSGATE_SERVICE_MARKUP_GUARD_H
#define WSGATE_SERVICE_MARKUP_GUARD_H

#include <cstddef>
#include <string>
#include <vector>

class MarkupGuard {
 public:
  struct Limits {
    size_t max_attributes;  // per start tag
    size_t max_children;    // per element (the document counts as one)
    size_t max_depth;       // open elements at once
  };

  explicit MarkupGuard(const Limits& limits);

  // Scans the next `length` bytes of the message (any split of the message gives the same
  // outcome). Returns 0 while the message is within the limits; once a limit is broken,
  // the runtime's error code for it, SOAP_OCCURS (attributes, children), SOAP_LEVEL
  // (depth), SOAP_SYNTAX_ERROR (a NUL character) or SOAP_UTF_ERROR (not UTF-8), from then
  // on.
  int scan(const char* data, size_t length);

  // 0, or the error code of the first broken limit.
  int error() const { return error_; }

 private:
  enum class State {
    kText,
    kMarkupStart,  // after "<"
    kBang,         // after "<!"
    kBangDash,     // after "<!-"
    kStartTag,
    kQuoted,
    kEndTag,
    kComment,
    kCdata,
    kDeclaration,
    kInstruction,
  };

  void step(char c);
  // Follows character references in text and attribute values: fails on one naming NUL.
  void reference(char c);
  // Checks `length` bytes for UTF-8, continuing a sequence the previous chunk began.
  void checkUtf8(const unsigned char* data, size_t length);
  // Reads the XML declaration, if the message starts with one, for its encoding.
  void readDeclaration(const char* data, size_t length);
  // For comments ("-->") and CDATA sections ("]]>"): true when `c` ends the run of two
  // `mark` characters and ">".
  bool closes(char c, char mark);
  void openElement();
  void closeStartTag();
  void fail(int error);

  Limits limits_;
  State state_ = State::kText;
  char quote_ = 0;
  char last_ = 0;       // previous significant byte of a start tag ('/' marks "/>")
  int terminator_ = 0;  // how much of "-->", "]]>" or "?>" has been seen
  // Where a character reference stands: 0 outside one, 1 after "&", 2 after "&#" or
  // "&#x", 3 after at least one digit, all of them zero so far.
  int reference_ = 0;
  // UTF-8: continuation bytes still expected, and the range the next one must fall in.
  int utf8_pending_ = 0;
  unsigned char utf8_low_ = 0x80;
  unsigned char utf8_high_ = 0xbf;
  // The start of the message until its XML declaration is read: whether the bytes must be
  // UTF-8 is known once `declaration_read_`.
  std::string declaration_;
  bool declaration_read_ = false;
  bool utf8_ = true;
  size_t attributes_ = 0;
  std::vector<size_t> children_;  // per open element, the document first
  int error_ = 0;
};

#endif  // WSGATE_SERVICE_MARKUP_GUARD_H
