#include "TolveraService/PeerUser.h"

#include <boost/asio/ip/tcp.hpp>

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace tolvera::service {

namespace {

using Endpoint = boost::asio::ip::tcp::endpoint;

struct Ends {
  Endpoint theirs;
  Endpoint ours;
};

Endpoint tcpEndpoint(const ClientSocket::endpoint_type& end) {
  Endpoint endpoint;
  std::memcpy(endpoint.data(), end.data(), std::min(endpoint.capacity(), end.size()));
  return endpoint;
}

std::uint32_t addressOf(const Endpoint& end) { return htonl(end.address().to_v4().to_uint()); }

// Asks the kernel for this one connection. A socket without an inode is one that its program has closed; it
// no longer tells the user.
std::optional<uid_t> askKernel(const Ends& ends) {
  const int link = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
  if (link < 0) return std::nullopt;
  struct {
    nlmsghdr header{};
    inet_diag_req_v2 what{};
  } request;
  request.header = {sizeof request, SOCK_DIAG_BY_FAMILY, NLM_F_REQUEST, 0, 0};
  request.what.sdiag_family = AF_INET;
  request.what.sdiag_protocol = IPPROTO_TCP;
  request.what.idiag_states = ~0U;
  inet_diag_sockid& id = request.what.id;
  id.idiag_sport = htons(ends.theirs.port());
  id.idiag_dport = htons(ends.ours.port());
  id.idiag_src[0] = addressOf(ends.theirs);
  id.idiag_dst[0] = addressOf(ends.ours);
  id.idiag_cookie[0] = id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
  alignas(nlmsghdr) std::array<char, 4096> reply{};
  ssize_t size = ::send(link, &request, sizeof request, 0);
  if (size > 0) size = ::recv(link, reply.data(), reply.size(), 0);
  ::close(link);
  nlmsghdr header{};
  inet_diag_msg found{};
  if (size < static_cast<ssize_t>(NLMSG_LENGTH(sizeof found))) return std::nullopt;
  std::memcpy(&header, reply.data(), sizeof header);
  std::memcpy(&found, reply.data() + NLMSG_HDRLEN, sizeof found);
  if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY || found.idiag_inode == 0) return std::nullopt;
  return found.idiag_uid;
}

std::string inTable(const Endpoint& end) {
  std::ostringstream text;
  text << std::uppercase << std::hex;
  for (const auto& [value, width] : {std::pair(addressOf(end), 8), std::pair(std::uint32_t{end.port()}, 4)}) {
    if (width == 4) text << ':';
    text.width(width);
    text.fill('0');
    text << value;
  }
  return text.str();
}

// Where the kernel answers no such question there is still its table of all connections, which is slow to
// read.
std::optional<uid_t> readTable(const Ends& ends) {
  std::ifstream table("/proc/net/tcp");
  const std::string theirs = inTable(ends.theirs);
  const std::string ours = inTable(ends.ours);
  std::string line;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string number, local, remote, state, queues, timer, retries, timeout;
    uid_t user = 0;
    unsigned long inode = 0;
    fields >> number >> local >> remote >> state >> queues >> timer >> retries >> user >> timeout >> inode;
    if (fields && local == theirs && remote == ours && inode != 0) return user;
  }
  return std::nullopt;
}

} // namespace

std::optional<uid_t> userAtOtherEnd(ClientSocket& socket) {
  boost::system::error_code error;
  const auto theirs = socket.remote_endpoint(error);
  if (error) return std::nullopt;
  if (theirs.protocol().family() == AF_UNIX) {
    ucred peer{};
    socklen_t size = sizeof peer;
    const int failed = ::getsockopt(socket.native_handle(), SOL_SOCKET, SO_PEERCRED, &peer, &size);
    return failed == 0 ? std::optional(peer.uid) : std::nullopt;
  }
  const auto ours = socket.local_endpoint(error);
  if (error || theirs.protocol().family() != AF_INET) return std::nullopt;
  const Ends ends{tcpEndpoint(theirs), tcpEndpoint(ours)};
  const auto user = askKernel(ends);
  return user ? user : readTable(ends);
}

} // namespace tolvera::service
