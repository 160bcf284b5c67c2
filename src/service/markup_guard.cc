#include "service/markup_guard.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "soapH.h"

MarkupGuard::MarkupGuard(const Limits& limits) : limits_(limits), children_(1, 0) {}

int MarkupGuard::scan(const char* data, size_t length) {
  if (length > 0 && memchr(data, '\0', length) != nullptr) fail(SOAP_SYNTAX_ERROR);
  if (!declaration_read_) readDeclaration(data, length);
  if (utf8_) checkUtf8(reinterpret_cast<const unsigned char*>(data), length);
  const char* end = data + length;
  while (data < end && error_ == 0) {
    // Long texts are most of a large message: jump to the next markup or reference.
    if (state_ == State::kText && reference_ == 0) {
      const char* lt = static_cast<const char*>(memchr(data, '<', end - data));
      const char* stop = lt != nullptr ? lt : end;
      const void* amp = memchr(data, '&', stop - data);
      if (amp == nullptr && lt == nullptr) break;
      data = amp != nullptr ? static_cast<const char*>(amp) : lt;
    }
    step(*data++);
  }
  return error_;
}

// The declaration, when there is one, is the first thing of the message and plain ASCII:
// "<?xml version="1.0" encoding="ISO-8859-1"?>". Only an encoding other than UTF-8 named
// there lifts the UTF-8 check; the runtime then decodes that encoding itself.
void MarkupGuard::readDeclaration(const char* data, size_t length) {
  constexpr size_t kLongestDeclaration = 256;
  declaration_.append(data, std::min(length, kLongestDeclaration - declaration_.size()));
  const std::string start = "<?xml";
  if (declaration_.compare(0, std::min(declaration_.size(), start.size()), start, 0,
                           std::min(declaration_.size(), start.size())) != 0) {
    declaration_read_ = true;  // no declaration: UTF-8
    declaration_.clear();
    return;
  }
  const size_t end = declaration_.find("?>");
  if (end == std::string::npos && declaration_.size() < kLongestDeclaration) return;
  declaration_read_ = true;
  std::string text = declaration_.substr(0, end);
  for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  declaration_.clear();
  const size_t at = text.find("encoding");
  if (at == std::string::npos) return;
  const size_t quote = text.find_first_of("\"'", at);
  if (quote == std::string::npos) return;
  const size_t close = text.find(text[quote], quote + 1);
  const std::string name = text.substr(quote + 1, close == std::string::npos ? std::string::npos
                                                                             : close - quote - 1);
  utf8_ = name == "utf-8" || name == "utf8";
}

// A byte-wise UTF-8 check: lead bytes C2-F4, each followed by its continuation bytes, with
// the second byte's range narrowed where the standard narrows it (no overlong forms, no
// surrogates, nothing above U+10FFFF).
void MarkupGuard::checkUtf8(const unsigned char* data, size_t length) {
  for (size_t i = 0; i < length && error_ == 0; ++i) {
    const unsigned char c = data[i];
    if (utf8_pending_ > 0) {
      if (c < utf8_low_ || c > utf8_high_) {
        fail(SOAP_UTF_ERROR);
        return;
      }
      --utf8_pending_;
      utf8_low_ = 0x80;
      utf8_high_ = 0xbf;
      continue;
    }
    if (c < 0x80) continue;
    if (c >= 0xc2 && c <= 0xdf) {
      utf8_pending_ = 1;
    } else if (c >= 0xe0 && c <= 0xef) {
      utf8_pending_ = 2;
      if (c == 0xe0) utf8_low_ = 0xa0;
      if (c == 0xed) utf8_high_ = 0x9f;
    } else if (c >= 0xf0 && c <= 0xf4) {
      utf8_pending_ = 3;
      if (c == 0xf0) utf8_low_ = 0x90;
      if (c == 0xf4) utf8_high_ = 0x8f;
    } else {
      fail(SOAP_UTF_ERROR);
      return;
    }
  }
}

void MarkupGuard::reference(char c) {
  switch (reference_) {
    case 1:
      reference_ = c == '#' ? 2 : 0;
      break;
    case 2:
      reference_ = c == '0' ? 3 : (c == 'x' || c == 'X') ? 2 : 0;
      break;
    case 3:
      if (c == ';') fail(SOAP_SYNTAX_ERROR);
      if (c != '0') reference_ = 0;
      break;
  }
  if (reference_ == 0 && c == '&') reference_ = 1;
}

void MarkupGuard::step(char c) {
  if (state_ == State::kText || state_ == State::kQuoted) reference(c);
  switch (state_) {
    case State::kText:
      if (c == '<') {
        reference_ = 0;
        state_ = State::kMarkupStart;
      }
      break;
    case State::kMarkupStart:
      if (c == '/') {
        state_ = State::kEndTag;
      } else if (c == '!') {
        state_ = State::kBang;
      } else if (c == '?') {
        state_ = State::kInstruction;
        terminator_ = 0;
      } else if (c != '<') {
        openElement();
        state_ = State::kStartTag;
        attributes_ = 0;
        last_ = c;
      }
      break;
    case State::kBang:
      terminator_ = 0;
      state_ = c == '-'   ? State::kBangDash
               : c == '[' ? State::kCdata
               : c == '>' ? State::kText
                          : State::kDeclaration;
      break;
    case State::kBangDash:
      state_ = c == '-' ? State::kComment : c == '>' ? State::kText : State::kDeclaration;
      break;
    case State::kComment:
      if (closes(c, '-')) state_ = State::kText;
      break;
    case State::kCdata:
      if (closes(c, ']')) state_ = State::kText;
      break;
    case State::kInstruction:  // ends at "?>"
      if (c == '>' && terminator_ == 1) {
        state_ = State::kText;
      } else {
        terminator_ = c == '?' ? 1 : 0;
      }
      break;
    case State::kDeclaration:
      if (c == '>') state_ = State::kText;
      break;
    case State::kEndTag:
      if (c == '>' || c == '<') {
        if (children_.size() > 1) children_.pop_back();
        state_ = c == '>' ? State::kText : State::kMarkupStart;
      }
      break;
    case State::kStartTag:
      if (c == '"' || c == '\'') {
        quote_ = c;
        state_ = State::kQuoted;
      } else if (c == '=') {
        if (++attributes_ > limits_.max_attributes) fail(SOAP_OCCURS);
      } else if (c == '>' || c == '<') {
        closeStartTag();
        state_ = c == '>' ? State::kText : State::kMarkupStart;
      } else if (c != ' ' && c != '\t' && c != '\r' && c != '\n') {
        last_ = c;
      }
      break;
    case State::kQuoted:
      if (c == quote_) {
        last_ = c;
        reference_ = 0;
        state_ = State::kStartTag;
      } else if (c == '<') {
        // Not well-formed, and the runtime may read it as a tag: count it as one.
        closeStartTag();
        state_ = State::kMarkupStart;
      }
      break;
  }
}

bool MarkupGuard::closes(char c, char mark) {
  if (c == '>' && terminator_ == 2) return true;
  terminator_ = c == mark ? std::min(terminator_ + 1, 2) : 0;
  return false;
}

void MarkupGuard::openElement() {
  if (++children_.back() > limits_.max_children) fail(SOAP_OCCURS);
}

void MarkupGuard::closeStartTag() {
  if (last_ == '/') return;  // "<a/>" opens nothing
  children_.push_back(0);
  if (children_.size() - 1 > limits_.max_depth) fail(SOAP_LEVEL);
}

void MarkupGuard::fail(int error) {
  if (error_ == 0) error_ = error;
}
