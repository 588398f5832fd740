// A server that gives every client the same answer, for as long as a command runs.
// Usage: tiny_server PORT ANSWER [PORT ANSWER]... -- COMMAND [ARGUMENT]...
// ANSWER is what is sent, byte for byte, before the connection is closed; or "close" for nothing at
// all, or "reset" for a connection reset. Requests are appended to /var/log/requests. The ports are
// open on 127.0.0.1 before the command starts.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

int listenOn(const char* port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<in_port_t>(std::strtoul(port, nullptr, 10)));
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(listener, 16) != 0) {
    std::perror("tiny_server: cannot listen");
    std::exit(1);
  }
  return listener;
}

void answer(int client, const std::string& text) {
  std::string request;
  std::array<char, 4096> buffer{};
  // A client that speaks TLS gets the same answer, to its first words.
  while (request.find("\r\n\r\n") == std::string::npos && !request.starts_with('\x16')) {
    const ssize_t got = read(client, buffer.data(), buffer.size());
    if (got <= 0) break;
    request.append(buffer.data(), static_cast<size_t>(got));
  }
  std::ofstream("/var/log/requests", std::ios::app) << request;
  if (text == "reset") {
    const linger now{1, 0};
    setsockopt(client, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
  } else if (text != "close") {
    send(client, text.data(), text.size(), MSG_NOSIGNAL);
  }
}

}  // namespace

int main(int argc, char** argv) {
  int i = 1;
  for (; i + 1 < argc && std::strcmp(argv[i], "--") != 0; i += 2) {
    const int listener = listenOn(argv[i]);
    if (fork() != 0) continue;
    for (;;) {
      const int client = accept(listener, nullptr, nullptr);
      if (client < 0) return 1;
      answer(client, argv[i + 1]);
      close(client);
    }
  }
  execv(argv[i + 1], argv + i + 1);
  return 127;
}
