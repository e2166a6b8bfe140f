// A proxy between a client and a PostgreSQL server, on UNIX sockets.
#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace test {

// Serves one connection at a time.
class Proxy {
 public:
  enum class Action {
    kPass,
    kDropAnswer,  // passes the bytes, waits for the answer, and closes the connection without forwarding it
    kDrop,        // closes the connection at once
    kEnd,         // like kDropAnswer, and stops accepting connections
  };
  using Edit = std::function<Action(std::string& bytes, bool toServer)>;

  Proxy(const std::string& folder, const std::string& server, Edit edit)
      : front_(addressIn(folder)), back_(addressIn(server)), edit_(std::move(edit)) {
    if (::bind(listener_, raw(front_), sizeof front_) != 0 || ::listen(listener_, 5) != 0)
      throw std::runtime_error("cannot listen in " + folder);
    thread_ = std::thread([this] {
      while (serve()) {
      }
      ::close(listener_);
      ::unlink(front_.sun_path);
    });
  }
  ~Proxy() {
    ::eventfd_write(stop_, 1);
    thread_.join();
    ::close(stop_);
  }
  Proxy(const Proxy&) = delete;
  Proxy& operator=(const Proxy&) = delete;

 private:
  static sockaddr_un addressIn(const std::string& folder) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (folder + "/.s.PGSQL.5432").copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
  }
  static const sockaddr* raw(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
  }

  // False once no more connections are accepted.
  bool serve() {
    pollfd arrivals[] = {{listener_, POLLIN, 0}, {stop_, POLLIN, 0}};
    ::poll(arrivals, 2, -1);
    if (arrivals[1].revents != 0) return false;
    pollfd ends[] = {{::accept(listener_, nullptr, nullptr), POLLIN, 0},
                     {::socket(AF_UNIX, SOCK_STREAM, 0), POLLIN, 0},
                     {stop_, POLLIN, 0}};
    Action action = ::connect(ends[1].fd, raw(back_), sizeof back_) == 0 ? Action::kPass : Action::kDrop;
    while (action == Action::kPass) {
      ::poll(ends, 3, -1);
      if (ends[2].revents != 0) action = Action::kEnd;
      for (std::size_t from = 0; from < 2 && action == Action::kPass; ++from) {
        if (ends[from].revents != 0) action = pass(ends[from].fd, ends[1 - from].fd, from == 0);
      }
    }
    for (std::size_t end = 0; end < 2; ++end) ::close(ends[end].fd);
    return action != Action::kEnd;
  }

  Action pass(int from, int to, bool toServer) {
    std::string bytes(65536, '\0');
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(0, ::read(from, bytes.data(), bytes.size()))));
    if (bytes.empty()) return Action::kDrop;
    const Action action = edit_(bytes, toServer);
    if (action != Action::kDrop && ::send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0)
      return Action::kDrop;
    pollfd answer{to, POLLIN, 0};
    if (action == Action::kDropAnswer || action == Action::kEnd) ::poll(&answer, 1, -1);
    return action;
  }

  const sockaddr_un front_, back_;
  const Edit edit_;
  const int listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int stop_ = ::eventfd(0, EFD_CLOEXEC);
  std::thread thread_;
};

}  // namespace test
