#include "sim/proxy_image.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "sim/system_error.h"

namespace sim {
namespace {

constexpr const char *kDevice = "/dev/proxyimg";
constexpr std::uint32_t kStartReading = 0x20007005;
constexpr std::uint32_t kReadWord = 0x20007006;
constexpr int kStopCheckMs = 50;

constexpr std::uint32_t kNumberAt = offsetof(seccomp_data, nr);
constexpr std::uint32_t kRequestAt = offsetof(seccomp_data, args) + sizeof(std::uint64_t);

// Only the program under test runs behind it, so the architecture needs no test.
std::array<sock_filter, 7> doorFilter() {
    return {{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kNumberAt),
             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_ioctl, 0, 3),
             BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kRequestAt),
             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kStartReading, 2, 0),
             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kReadWord, 1, 0),
             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF)}};
}

// One descriptor as the payload of a message.
struct DescriptorMessage {
    char byte = 0;
    iovec content{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr header{};

    DescriptorMessage() {
        header.msg_iov = &content;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
    }
};

void sendDescriptor(int socket, int descriptor) {
    DescriptorMessage message;
    cmsghdr *const part = CMSG_FIRSTHDR(&message.header);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SCM_RIGHTS;
    part->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(part), &descriptor, sizeof descriptor);
    sendmsg(socket, &message.header, MSG_NOSIGNAL);
}

// Runs in the daemon's process: system calls only.
void installDoor(int socket) {
    auto filter = doorFilter();
    sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    const auto door = static_cast<int>(
        syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
    sendDescriptor(socket, door);
    close(door);
}

bool isDevice(std::uint32_t process, std::uint64_t descriptor) {
    std::error_code error;
    const auto path = std::filesystem::read_symlink(
        "/proc/" + std::to_string(process) + "/fd/" + std::to_string(descriptor), error);
    return path == kDevice;
}

}  // namespace

ProxyImage::ProxyImage() {
    const FileDescriptor device(open(kDevice, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    check(device.get(), std::string("make ") + kDevice);
    std::array<int, 2> ends{};
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), "make a socket pair");
    daemon_end = FileDescriptor(ends[0]);
    own_end = FileDescriptor(ends[1]);
    thread = std::thread([this] { run(); });
}

ProxyImage::~ProxyImage() {
    stop = true;
    thread.join();
    std::remove(kDevice);
}

std::function<void()> ProxyImage::installer() const {
    return [socket = daemon_end.get()] { installDoor(socket); };
}

void ProxyImage::setWords(std::vector<std::uint32_t> level_words) {
    const std::lock_guard lock(mutex);
    words = std::move(level_words);
    next_word = 0;
}

void ProxyImage::run() {
    const FileDescriptor door = receiveDoor();
    pollfd waiting{door.get(), POLLIN, 0};
    while (door.isOpen() && !stop) {
        poll(&waiting, 1, kStopCheckMs);
        if ((waiting.revents & POLLIN) != 0) {
            answerOne(door.get());
        } else if (waiting.revents != 0) {
            return;  // the daemon has ended
        }
    }
}

FileDescriptor ProxyImage::receiveDoor() {
    pollfd waiting{own_end.get(), POLLIN, 0};
    while (poll(&waiting, 1, kStopCheckMs) == 0) {
        if (stop) {
            return {};
        }
    }
    DescriptorMessage message;
    if (recvmsg(own_end.get(), &message.header, MSG_CMSG_CLOEXEC) <= 0) {
        return {};
    }
    int descriptor = -1;
    if (const cmsghdr *part = CMSG_FIRSTHDR(&message.header); part != nullptr) {
        std::memcpy(&descriptor, CMSG_DATA(part), sizeof descriptor);
    }
    return FileDescriptor(descriptor);
}

void ProxyImage::answerOne(int door) {
    seccomp_notif request{};
    if (ioctl(door, SECCOMP_IOCTL_NOTIF_RECV, &request) != 0) {
        return;  // the caller was ended meanwhile
    }
    const auto *const arguments = reinterpret_cast<const std::uint64_t *>(request.data.args);
    const Answer answer = answerTo(request.pid, arguments);
    seccomp_notif_resp reply{};
    reply.id = request.id;
    reply.val = answer.value;
    reply.error = answer.error;
    reply.flags = answer.pass_on ? SECCOMP_USER_NOTIF_FLAG_CONTINUE : 0;
    ioctl(door, SECCOMP_IOCTL_NOTIF_SEND, &reply);
}

ProxyImage::Answer ProxyImage::answerTo(std::uint32_t process, const std::uint64_t *arguments) {
    if (!isDevice(process, arguments[0])) {
        return {.pass_on = true};
    }
    if (arguments[1] == kStartReading) {
        ++starts;
        return {};
    }
    ++word_requests;
    return deliverWord(process, arguments[2]);
}

ProxyImage::Answer ProxyImage::deliverWord(std::uint32_t process, std::uint64_t address) {
    const std::lock_guard lock(mutex);
    if (words.empty()) {
        return {.value = -1, .error = -EIO};
    }
    std::uint32_t value = words[next_word++ % words.size()];
    const iovec from{&value, sizeof value};
    // An address in the other process comes as a number.
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    const iovec to{reinterpret_cast<void *>(address), sizeof value};
    if (process_vm_writev(static_cast<pid_t>(process), &from, 1, &to, 1, 0) != sizeof value) {
        return {.value = -1, .error = -EFAULT};
    }
    return {};
}

}  // namespace sim
