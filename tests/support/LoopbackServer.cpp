#include "tests/support/LoopbackServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace tks::test {
namespace {

constexpr std::size_t kLongestHead = 64 * 1024;

std::shared_ptr<void> tlsFor(const ServerIdentity* identity) {
  if (identity == nullptr) return nullptr;
  std::shared_ptr<SSL_CTX> context(::SSL_CTX_new(::TLS_server_method()), ::SSL_CTX_free);
  ::SSL_CTX_use_certificate(context.get(), identity->certificate.get());
  ::SSL_CTX_use_PrivateKey(context.get(), identity->key.get());
  return context;
}

/// A client that is gone must not end the test: the signal stays with the thread that wrote.
void blockBrokenPipes() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

class LoopbackServer::Client final : public LoopbackServer::Connection {
 public:
  explicit Client(int descriptor) : descriptor_(descriptor) {}
  ~Client() override { ::close(descriptor_); }

  std::thread thread;

  /// Greets the client, over TLS when there is a context for it, and reads the head of its request.
  bool receive(SSL_CTX* context) {
    if (context != nullptr) {
      tls_.reset(::SSL_new(context));
      ::SSL_set_fd(tls_.get(), descriptor_);
      if (::SSL_accept(tls_.get()) != 1) return false;
    }
    char piece[4096];
    while (head_.find("\r\n\r\n") == std::string::npos && head_.size() < kLongestHead) {
      const long count = read(piece, sizeof piece);
      if (count <= 0) return false;
      head_.append(piece, static_cast<std::size_t>(count));
    }
    const std::size_t begin = head_.find(' ') + 1;
    path_ = head_.substr(begin, head_.find(' ', begin) - begin);
    return true;
  }

  const std::string& path() const override { return path_; }
  const std::string& head() const override { return head_; }

  bool send(std::string_view text) override {
    while (!text.empty()) {
      const long count = tls_ ? ::SSL_write(tls_.get(), text.data(), static_cast<int>(text.size()))
                              : ::send(descriptor_, text.data(), text.size(), MSG_NOSIGNAL);
      if (count <= 0) return false;
      text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  void reset() override {
    const linger atOnce{1, 0};
    ::setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    // The descriptor's number stays taken until the thread has ended.
    const int null = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ::dup3(null, descriptor_, O_CLOEXEC);
    ::close(null);
  }

  void waitForEnd() override {
    char piece[4096];
    while (read(piece, sizeof piece) > 0) continue;
  }

  /// The end of the answer, or of the server.
  void end() { ::shutdown(descriptor_, SHUT_RDWR); }

 private:
  long read(char* into, std::size_t size) {
    return tls_ ? ::SSL_read(tls_.get(), into, static_cast<int>(size)) : ::recv(descriptor_, into, size, 0);
  }

  int descriptor_;
  std::unique_ptr<SSL, decltype(&::SSL_free)> tls_{nullptr, ::SSL_free};
  std::string head_;
  std::string path_;
};

LoopbackServer::LoopbackServer(Answer answer, const ServerIdentity* identity)
    : answer_(std::move(answer)), tls_(tlsFor(identity)) {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof place;
  if (::bind(listener_, reinterpret_cast<sockaddr*>(&place), size) != 0 || ::listen(listener_, 16) != 0 ||
      ::getsockname(listener_, reinterpret_cast<sockaddr*>(&place), &size) != 0) {
    throw std::runtime_error("no loopback server");
  }
  port_ = ::ntohs(place.sin_port);
  acceptor_ = std::thread([this] { acceptAll(); });
}

LoopbackServer::~LoopbackServer() {
  {
    const std::scoped_lock lock(mutex_);
    ends_ = true;
    for (Client& client : clients_) client.end();
  }
  ::shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  for (Client& client : clients_) client.thread.join();
  ::close(listener_);
}

std::string LoopbackServer::address(std::string_view host) const {
  return std::string(tls_ ? "https://" : "http://").append(host).append(":").append(std::to_string(port_));
}

std::vector<std::string> LoopbackServer::requests() const {
  const std::scoped_lock lock(mutex_);
  return requests_;
}

void LoopbackServer::acceptAll() {
  for (;;) {
    const int descriptor = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0) return;
    const std::scoped_lock lock(mutex_);
    Client& client = clients_.emplace_back(descriptor);
    if (ends_) client.end();
    client.thread = std::thread([this, &client] { serve(client); });
  }
}

void LoopbackServer::serve(Client& client) {
  blockBrokenPipes();
  if (client.receive(static_cast<SSL_CTX*>(tls_.get()))) {
    {
      const std::scoped_lock lock(mutex_);
      requests_.push_back(client.path());
    }
    answer_(client);
  }
  client.end();
}

std::string response(int status, std::string_view body, std::string_view headers) {
  return std::string("HTTP/1.1 ")
      .append(std::to_string(status))
      .append(" -\r\nContent-Length: ")
      .append(std::to_string(body.size()))
      .append("\r\nConnection: close\r\n")
      .append(headers)
      .append("\r\n")
      .append(body);
}

}  // namespace tks::test
