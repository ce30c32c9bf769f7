#include "tests/support/engine_proxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "tests/support/temp_dir.h"

namespace test_support {
namespace {

constexpr std::size_t cut_behind = 700;

sockaddr_in local(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<in_port_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool send_all(int to, const std::string& text) {
  return ::send(to, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

// What comes next; empty at the end.
std::string receive(int from) {
  std::string text(65536, '\0');
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(::read(from, &text[0], text.size()), 0)));
  return text;
}

// The head of a call, with its body where that is short.
std::string receive_call(int from) {
  std::string text;
  for (std::string more; !(more = receive(from)).empty();) {
    text += more;
    const std::size_t end = text.find("\r\n\r\n");
    const std::size_t length = text.find("Content-Length: ");
    if (end == std::string::npos) continue;
    const unsigned long body = length < end ? std::stoul(text.substr(length + 16)) : 0;
    if (body > 65536 || text.size() >= end + 4 + body) break;
  }
  return text;
}

}  // namespace

Engine_Proxy::Engine_Proxy(std::string port_file)
    : port_file_(std::move(port_file)),
      listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = local(0);
  socklen_t size = sizeof address;
  ::bind(listener_, reinterpret_cast<sockaddr*>(&address), size);
  ::listen(listener_, 16);
  ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
  port_ = ntohs(address.sin_port);
  server_ = std::thread([this] { serve(); });
}

Engine_Proxy::~Engine_Proxy() {
  ::shutdown(listener_, SHUT_RDWR);
  server_.join();
  ::close(listener_);
}

void Engine_Proxy::disturb(const std::string& part, const std::string& answer) {
  const std::lock_guard<std::mutex> guard(mutex_);
  part_ = part;
  answer_ = answer;
  disturbed_ = 0;
}

void Engine_Proxy::serve() {
  for (int client; (client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
    pass(client);
    ::close(client);
  }
}

void Engine_Proxy::pass(int client) {
  const std::string call = receive_call(client);
  std::string answer;
  bool hit = false;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    answer = answer_;
    hit = !part_.empty() && call.find(part_) != std::string::npos &&
          (!answer.empty() || disturbed_ == 0);
  }
  if (hit) ++disturbed_;
  if (hit && !answer.empty()) {
    send_all(client, answer);
    return;
  }
  const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = local(std::stoi(read_file(port_file_)));
  if (::connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      send_all(server, call)) {
    pollfd ends[] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
    while (::poll(ends, 2, -1) > 0) {
      const bool is_answer = ends[1].revents != 0;
      std::string text = receive(is_answer ? server : client);
      if (is_answer) received_ += text.size();
      if (is_answer && hit) send_all(client, text.substr(0, cut_behind));
      if (text.empty() || (is_answer && hit)) break;
      if (!send_all(is_answer ? client : server, text)) break;
    }
  }
  ::close(server);
}

}  // namespace test_support
