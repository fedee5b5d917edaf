#include "scribeprotocol.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace scribeprotocol {

std::string socketPath(const std::string &processingDirectory)
{
    const std::string path = processingDirectory + "/recordings/" + socketName;
    return path.size() < sizeof(sockaddr_un::sun_path) ? path : std::string();
}

bool request(const std::string &path, const std::string &line, const std::vector<int> &descriptors,
             std::chrono::milliseconds wait)
{
    if (path.empty() || descriptors.size() > size_t(mostDescriptors))
        return false;
    const int connection = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connection < 0)
        return false;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    bool answered = false;
    if (::connect(connection, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
        const std::string text = std::string(greeting) + ' ' + line + '\n';
        iovec data{const_cast<char *>(text.data()), text.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * mostDescriptors)] = {};
        msghdr message = {};
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        if (!descriptors.empty()) {
            message.msg_control = control;
            message.msg_controllen = CMSG_SPACE(sizeof(int) * descriptors.size());
            cmsghdr *header = CMSG_FIRSTHDR(&message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN(sizeof(int) * descriptors.size());
            std::memcpy(CMSG_DATA(header), descriptors.data(), sizeof(int) * descriptors.size());
        }
        if (::sendmsg(connection, &message, MSG_NOSIGNAL) == ssize_t(text.size())) {
            pollfd ready{connection, POLLIN, 0};
            char answer = 0;
            answered = ::poll(&ready, 1, int(wait.count())) == 1 &&
                       ::read(connection, &answer, 1) == 1 && answer == '1';
        }
    }
    ::close(connection);
    return answered;
}

bool receive(int connection, std::string &line, std::vector<int> &descriptors)
{
    char text[512];
    iovec data{text, sizeof text - 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * mostDescriptors)] = {};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t n = ::recvmsg(connection, &message, MSG_CMSG_CLOEXEC);
    for (cmsghdr *header = CMSG_FIRSTHDR(&message); header;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS)
            continue;
        const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        const int *fds = reinterpret_cast<const int *>(CMSG_DATA(header));
        descriptors.assign(fds, fds + count);
    }
    if (n <= 0)
        return false;
    line.assign(text, size_t(n));
    const std::string prefix = std::string(greeting) + ' ';
    if (line.empty() || line.back() != '\n' || line.compare(0, prefix.size(), prefix) != 0)
        return false;
    line = line.substr(prefix.size(), line.size() - prefix.size() - 1);
    return true;
}

} // namespace scribeprotocol
