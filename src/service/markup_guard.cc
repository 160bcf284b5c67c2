#include "service/markup_guard.h"

#include <algorithm>
#include <cstring>

#include "soapH.h"

MarkupGuard::MarkupGuard(const Limits& limits) : limits_(limits), children_(1, 0) {}

int MarkupGuard::scan(const char* data, size_t length) {
  if (length > 0 && memchr(data, '\0', length) != nullptr) fail(SOAP_SYNTAX_ERROR);
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
