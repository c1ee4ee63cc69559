#include "demo/network.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <memory>

#include "host/base/descriptor.h"

namespace Host {
namespace {

constexpr uint8_t networkBits = 30;
constexpr uint32_t sequence = 1;

using Buffer = std::array<char, 8192>;

struct CloseSocket {
    void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
};

nlmsghdr* Request(Buffer& buffer, uint16_t type, uint16_t flags) {
    nlmsghdr* header = mnl_nlmsg_put_header(buffer.data());
    header->nlmsg_type = type;
    header->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    header->nlmsg_seq = sequence;
    return header;
}

// Sends one request and reads its acknowledgement. Returns an errno, 0 for success.
int Ask(const nlmsghdr* request) {
    const std::unique_ptr<mnl_socket, CloseSocket> socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
    if (socket == nullptr || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) != 0 ||
        mnl_socket_sendto(socket.get(), request, request->nlmsg_len) < 0) {
        return errno;
    }
    Buffer answer;
    const ssize_t count = mnl_socket_recvfrom(socket.get(), answer.data(), answer.size());
    if (count < 0) {
        return errno;
    }
    const int result = mnl_cb_run(answer.data(), static_cast<size_t>(count), sequence,
                                  mnl_socket_get_portid(socket.get()), nullptr, nullptr);
    return result < 0 ? errno : 0;
}

int MakePair(int peerPid) {
    Buffer buffer;
    nlmsghdr* request = Request(buffer, RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg));
    mnl_attr_put_strz(request, IFLA_IFNAME, hostInterface);
    nlattr* info = mnl_attr_nest_start(request, IFLA_LINKINFO);
    mnl_attr_put_strz(request, IFLA_INFO_KIND, "veth");
    nlattr* data = mnl_attr_nest_start(request, IFLA_INFO_DATA);
    nlattr* peer = mnl_attr_nest_start(request, VETH_INFO_PEER);
    mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg));
    mnl_attr_put_strz(request, IFLA_IFNAME, attackerInterface);
    mnl_attr_put_u32(request, IFLA_NET_NS_PID, static_cast<uint32_t>(peerPid));
    mnl_attr_nest_end(request, peer);
    mnl_attr_nest_end(request, data);
    mnl_attr_nest_end(request, info);
    return Ask(request);
}

int AddAddress(unsigned int index, const in_addr& address) {
    Buffer buffer;
    nlmsghdr* request = Request(buffer, RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL);
    auto* body = static_cast<ifaddrmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(ifaddrmsg)));
    body->ifa_family = AF_INET;
    body->ifa_prefixlen = networkBits;
    body->ifa_scope = RT_SCOPE_UNIVERSE;
    body->ifa_index = index;
    mnl_attr_put(request, IFA_LOCAL, sizeof(address), &address);
    mnl_attr_put(request, IFA_ADDRESS, sizeof(address), &address);
    return Ask(request);
}

int TurnOn(unsigned int index) {
    Buffer buffer;
    nlmsghdr* request = Request(buffer, RTM_NEWLINK, 0);
    auto* body = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg)));
    body->ifi_family = AF_UNSPEC;
    body->ifi_index = static_cast<int>(index);
    body->ifi_flags = IFF_UP;
    body->ifi_change = IFF_UP;
    return Ask(request);
}

bool Succeeded(int number, const std::string& what, std::string& error) {
    if (number != 0) {
        error = what + ": " + ErrorText(number);
    }
    return number == 0;
}

}  // namespace

bool EnterNewNetwork(std::string& error) {
    return Succeeded(::unshare(CLONE_NEWNET) == 0 ? 0 : errno, "cannot create a network namespace", error);
}

bool JoinNetworks(int peerPid, std::string& error) {
    return Succeeded(MakePair(peerPid), "cannot create a pair of virtual interfaces (veth)", error);
}

bool BringUp(const char* interface, const char* address, std::string& error) {
    const unsigned int index = ::if_nametoindex(interface);
    in_addr binary{};
    int number = index == 0 ? errno : 0;
    if (number == 0 && ::inet_pton(AF_INET, address, &binary) != 1) {
        number = EINVAL;
    }
    number = number != 0 ? number : AddAddress(index, binary);
    return Succeeded(number != 0 ? number : TurnOn(index), std::string("cannot configure interface ") + interface,
                     error);
}

}  // namespace Host
