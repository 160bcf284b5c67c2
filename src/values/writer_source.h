// The source text that names the writer of every store write made for a web-service caller.
#ifndef WSGATE_VALUES_WRITER_SOURCE_H
#define WSGATE_VALUES_WRITER_SOURCE_H

#include <string>

// "Web-Services:USER@ADDRESS" from the request's REMOTE_USER and REMOTE_ADDR (set by the
// request loop for the duration of a request; an unset variable gives an empty part).
std::string writerSource();

#endif  // WSGATE_VALUES_WRITER_SOURCE_H
