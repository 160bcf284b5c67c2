// fcgi_load: drives a FastCGI application on a Unix socket the way a web server does, and
// reports throughput and latency.
//
//   fcgi_load --socket PATH --body FILE [--expect TEXT] [--body FILE [--expect TEXT]]...
//             [--requests N] [--connections C] [--param NAME=VALUE]...
//
// Each request opens a connection, sends the parameters (REQUEST_METHOD, CONTENT_LENGTH and
// the --param ones) and a body, reads the answer to its end and closes. With several bodies
// the requests rotate over them in the order given (request i sends body i mod B), so a run
// is a fixed mix. C connections run at once (one thread each). A request counts as an error
// when it fails on the socket, or when its body has an --expect (the one following that
// --body; an --expect before any --body holds for every body) and the answer does not
// contain TEXT. Prints one line:
//   requests=N errors=E seconds=S rps=R p50_us=.. p99_us=.. max_us=..
// and with several bodies one more line per body:
//   body=FILE requests=N errors=E p50_us=.. p99_us=.. max_us=..
// Exit status 0 when there were no errors.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

enum : uint8_t { kBeginRequest = 1, kEndRequest = 3, kParams = 4, kStdin = 5, kStdout = 6 };

// One body of the mix and what its answers must contain.
struct Body {
  std::string file;
  std::string content;
  std::string expect;
  std::string request;  // the whole FastCGI request, built once
};

struct Settings {
  std::string socket_path;
  std::vector<Body> bodies;
  long requests = 10000;
  int connections = 1;
  std::vector<std::pair<std::string, std::string>> params;
  std::string expect_all;
};

// Latencies in microseconds, sorted, and the errors of one body or of the whole run.
struct Outcome {
  std::vector<uint32_t> latencies;
  long errors = 0;

  uint32_t percentile(double p) const {
    if (latencies.empty()) return 0;
    return latencies[std::min(latencies.size() - 1, static_cast<size_t>(p * latencies.size()))];
  }
  void print() const {
    printf("requests=%zu errors=%ld p50_us=%u p99_us=%u max_us=%u\n", latencies.size(), errors,
           percentile(0.5), percentile(0.99), latencies.empty() ? 0u : latencies.back());
  }
};

void appendRecord(std::string& out, uint8_t type, const std::string& content) {
  size_t offset = 0;
  do {
    size_t length = std::min<size_t>(content.size() - offset, 65535);
    const unsigned char header[8] = {1,
                                     type,
                                     0,
                                     1,
                                     static_cast<unsigned char>(length >> 8),
                                     static_cast<unsigned char>(length & 0xff),
                                     0,
                                     0};
    out.append(reinterpret_cast<const char*>(header), 8);
    out.append(content, offset, length);
    offset += length;
  } while (offset < content.size());
}

void appendLength(std::string& out, size_t n) {
  if (n < 128) {
    out += static_cast<char>(n);
  } else {
    out += static_cast<char>((n >> 24) | 0x80);
    out += static_cast<char>((n >> 16) & 0xff);
    out += static_cast<char>((n >> 8) & 0xff);
    out += static_cast<char>(n & 0xff);
  }
}

// The bytes of one whole request with `body`; the same for every request of it.
std::string buildRequest(const Settings& s, const std::string& body) {
  std::vector<std::pair<std::string, std::string>> params = {
      {"REQUEST_METHOD", "POST"},
      {"CONTENT_TYPE", "text/xml; charset=utf-8"},
      {"CONTENT_LENGTH", std::to_string(body.size())},
      {"SCRIPT_NAME", "/ws"}};
  params.insert(params.end(), s.params.begin(), s.params.end());
  std::string pairs;
  for (const auto& [name, value] : params) {
    appendLength(pairs, name.size());
    appendLength(pairs, value.size());
    pairs += name;
    pairs += value;
  }
  std::string out;
  appendRecord(out, kBeginRequest, std::string("\0\1\0\0\0\0\0\0", 8));  // responder, no keep
  appendRecord(out, kParams, pairs);
  appendRecord(out, kParams, "");
  appendRecord(out, kStdin, body);
  appendRecord(out, kStdin, "");
  return out;
}

// One request on a fresh connection; the application's stdout goes to `answer`.
bool roundTrip(const Settings& s, const std::string& request, std::string& answer) {
  int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0) return false;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, s.socket_path.c_str(), sizeof address.sun_path - 1);
  bool ok = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  for (size_t sent = 0; ok && sent < request.size();) {
    ssize_t n = send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
    ok = n > 0;
    if (ok) sent += static_cast<size_t>(n);
  }
  answer.clear();
  std::string buffer;
  bool ended = false;
  char chunk[65536];
  while (ok && !ended) {
    ssize_t n = recv(fd, chunk, sizeof chunk, 0);
    if (n <= 0) break;
    buffer.append(chunk, static_cast<size_t>(n));
    size_t pos = 0;
    while (buffer.size() - pos >= 8) {
      const auto* h = reinterpret_cast<const unsigned char*>(buffer.data() + pos);
      size_t length = (size_t{h[4]} << 8) | h[5];
      size_t total = 8 + length + h[6];
      if (buffer.size() - pos < total) break;
      if (h[1] == kStdout) answer.append(buffer, pos + 8, length);
      if (h[1] == kEndRequest) ended = true;
      pos += total;
    }
    buffer.erase(0, pos);
  }
  close(fd);
  return ok && ended;
}

Settings parseArguments(int argc, char** argv) {
  Settings s;
  auto need = [&](int& i) -> std::string {
    if (i + 1 >= argc) {
      fprintf(stderr, "fcgi_load: %s needs a value\n", argv[i]);
      exit(2);
    }
    return argv[++i];
  };
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--socket") {
      s.socket_path = need(i);
    } else if (arg == "--body") {
      Body body;
      body.file = need(i);
      std::ifstream file(body.file, std::ios::binary);
      if (!file) {
        fprintf(stderr, "fcgi_load: cannot read %s\n", body.file.c_str());
        exit(2);
      }
      std::stringstream text;
      text << file.rdbuf();
      body.content = text.str();
      s.bodies.push_back(std::move(body));
    } else if (arg == "--requests") {
      s.requests = atol(need(i).c_str());
    } else if (arg == "--connections") {
      s.connections = std::max(1, atoi(need(i).c_str()));
    } else if (arg == "--param") {
      std::string pair = need(i);
      size_t eq = pair.find('=');
      s.params.emplace_back(pair.substr(0, eq), eq == std::string::npos ? "" : pair.substr(eq + 1));
    } else if (arg == "--expect") {
      (s.bodies.empty() ? s.expect_all : s.bodies.back().expect) = need(i);
    } else {
      fprintf(stderr,
              "usage: fcgi_load --socket PATH --body FILE [--expect TEXT] "
              "[--body FILE [--expect TEXT]]... [--requests N] [--connections C] "
              "[--param NAME=VALUE]...\n");
      exit(2);
    }
  }
  if (s.socket_path.empty() || s.bodies.empty()) {
    fprintf(stderr, "fcgi_load: --socket and --body are required\n");
    exit(2);
  }
  for (Body& body : s.bodies) {
    if (body.expect.empty()) body.expect = s.expect_all;
    body.request = buildRequest(s, body.content);
  }
  return s;
}

}  // namespace

int main(int argc, char** argv) {
  const Settings s = parseArguments(argc, argv);
  const size_t kinds = s.bodies.size();
  std::atomic<long> next{0};
  std::atomic<bool> reported{false};
  // Per connection and body, so that the workers share nothing but the request counter.
  std::vector<std::vector<Outcome>> outcomes(s.connections, std::vector<Outcome>(kinds));

  auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> workers;
  for (int c = 0; c < s.connections; ++c) {
    workers.emplace_back([&, c] {
      std::string answer;
      for (long i = next.fetch_add(1); i < s.requests; i = next.fetch_add(1)) {
        const Body& body = s.bodies[i % kinds];
        Outcome& outcome = outcomes[c][i % kinds];
        auto t0 = std::chrono::steady_clock::now();
        bool ok = roundTrip(s, body.request, answer);
        auto t1 = std::chrono::steady_clock::now();
        if (!ok || (!body.expect.empty() && answer.find(body.expect) == std::string::npos)) {
          ++outcome.errors;
          if (!reported.exchange(true)) {
            fprintf(stderr, "fcgi_load: first bad answer (%s): %.300s\n", body.file.c_str(),
                    answer.c_str());
          }
        }
        outcome.latencies.push_back(static_cast<uint32_t>(
            std::chrono::duration_cast<std::chrono::microseconds>(t1 - t0).count()));
      }
    });
  }
  for (std::thread& t : workers) t.join();
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

  Outcome all;
  std::vector<Outcome> per_body(kinds);
  for (const auto& connection : outcomes) {
    for (size_t b = 0; b < kinds; ++b) {
      const Outcome& o = connection[b];
      per_body[b].latencies.insert(per_body[b].latencies.end(), o.latencies.begin(),
                                   o.latencies.end());
      per_body[b].errors += o.errors;
    }
  }
  for (Outcome& o : per_body) {
    std::sort(o.latencies.begin(), o.latencies.end());
    all.latencies.insert(all.latencies.end(), o.latencies.begin(), o.latencies.end());
    all.errors += o.errors;
  }
  std::sort(all.latencies.begin(), all.latencies.end());
  printf("requests=%zu errors=%ld seconds=%.3f rps=%.0f p50_us=%u p99_us=%u max_us=%u\n",
         all.latencies.size(), all.errors, seconds, all.latencies.size() / seconds,
         all.percentile(0.5), all.percentile(0.99),
         all.latencies.empty() ? 0u : all.latencies.back());
  if (kinds > 1) {
    for (size_t b = 0; b < kinds; ++b) {
      printf("body=%s ", s.bodies[b].file.c_str());
      per_body[b].print();
    }
  }
  return all.errors == 0 ? 0 : 1;
}
