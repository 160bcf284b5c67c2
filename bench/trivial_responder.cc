// trivial_responder: the cheapest FastCGI application that answers a SOAP request, the
// yardstick for the daemon's request-loop overhead. It reads the whole request body and
// writes a fixed whoAmI response.
//
//   trivial_responder SOCKET_PATH
#include <fcgiapp.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr const char kResponse[] =
    "Status: 200 OK\r\nContent-Type: text/xml; charset=utf-8\r\n\r\n"
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\" "
    "xmlns:nsqv=\"http://wsgate.local/ws/BACnetWSKiteQV\"><SOAP-ENV:Body>"
    "<nsqv:whoAmIResponse><result>bench</result></nsqv:whoAmIResponse>"
    "</SOAP-ENV:Body></SOAP-ENV:Envelope>\n";

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: trivial_responder SOCKET_PATH\n");
    return 2;
  }
  if (FCGX_Init() != 0) return 1;
  int fd = FCGX_OpenSocket(argv[1], 64);
  if (fd < 0) {
    fprintf(stderr, "trivial_responder: cannot listen on %s\n", argv[1]);
    return 1;
  }
  FCGX_Request request;
  FCGX_InitRequest(&request, fd, 0);
  char buffer[65536];
  while (FCGX_Accept_r(&request) >= 0) {
    while (FCGX_GetStr(buffer, sizeof buffer, request.in) > 0) {
    }
    FCGX_PutStr(kResponse, sizeof kResponse - 1, request.out);
    FCGX_Finish_r(&request);
  }
  return 0;
}
