// A look at the start of a FastCGI connection before the FastCGI library reads it: whether
// the request's parameters have all arrived, and whether the caller's identity in them is
// usable. The library keeps parameters as C strings, so "operator\0x" would reach the
// daemon as "operator": the check has to see the raw records.
#ifndef WSGATE_MAIN_FCGI_PARAMS_H
#define WSGATE_MAIN_FCGI_PARAMS_H

#include <cstddef>

enum class ParamsCheck {
  kComplete,    // every parameter is there, and the identity holds no NUL
  kIncomplete,  // more bytes are needed to tell
  kRefused,     // REMOTE_USER or REMOTE_ADDR holds a NUL, or the records are malformed
};

// Looks at the first `length` bytes that a web server sent on a new connection: the
// records up to the end of the parameter stream (an empty FCGI_PARAMS record), other
// records passed over. Never reads beyond `length`.
ParamsCheck checkParams(const unsigned char* data, size_t length);

// True when the first `length` bytes hold the end of the request's input (an empty
// FCGI_STDIN record) after whole records: all of the request has arrived.
bool inputComplete(const unsigned char* data, size_t length);

#endif  // WSGATE_MAIN_FCGI_PARAMS_H
