#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/TestAuthority.h"

namespace tks::test {

/// A web server on the loopback interface, which answers each request as a test says, however wrongly. Ends with the
/// object, whatever its connections do at the moment.
///   LoopbackServer server([](LoopbackServer::Connection& connection) { connection.send(response(404, "none")); });
class LoopbackServer {
 public:
  /// A client that has sent a request.
  class Connection {
   public:
    virtual ~Connection() = default;
    /// The path that the client asked for.
    virtual const std::string& path() const = 0;
    /// All that the client sent, up to the blank line.
    virtual const std::string& head() const = 0;
    /// False when the client is gone.
    virtual bool send(std::string_view text) = 0;
    /// Breaks the connection: the client sees a reset, not an end.
    virtual void reset() = 0;
    /// Says nothing until the client gives up.
    virtual void waitForEnd() = 0;
  };
  using Answer = std::function<void(Connection&)>;

  /// With an identity it is an https server.
  explicit LoopbackServer(Answer answer, const ServerIdentity* identity = nullptr);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  /// "http://127.0.0.1:PORT", without a closing slash.
  std::string address(std::string_view host = "127.0.0.1") const;
  /// The paths that were asked for, in order.
  std::vector<std::string> requests() const;

 private:
  class Client;

  void acceptAll();
  void serve(Client& client);

  Answer answer_;
  std::shared_ptr<void> tls_;
  int listener_ = -1;
  int port_ = 0;
  mutable std::mutex mutex_;
  bool ends_ = false;
  std::list<Client> clients_;
  std::vector<std::string> requests_;
  std::thread acceptor_;
};

/// A whole response, with a length and the end of the connection.
std::string response(int status, std::string_view body, std::string_view headers = {});

}  // namespace tks::test
