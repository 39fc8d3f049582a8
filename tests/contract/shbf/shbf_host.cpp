// Our own channels from the inside: the wire and everything wrong that can come over it, the rhythm of
// retries and reports, log lines to the letter, and what happens when descriptors run out.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "channel_fixture.h"
#include "fake_clock.h"
#include "log_capture.h"
#include "shbf_path.h"
#include "shbf_wire.h"

// What the next recvmsg fails with, each once.
static std::vector<int> recvmsg_errors;
extern "C" ssize_t __real_recvmsg(int fd, msghdr *message, int flags);
extern "C" ssize_t __wrap_recvmsg(int fd, msghdr *message, int flags)
{
    if (recvmsg_errors.empty())
        return __real_recvmsg(fd, message, flags);
    errno = recvmsg_errors.back();
    recvmsg_errors.pop_back();
    return -1;
}

namespace
{

const std::string root = long_scratch_root();
const char path[] = "/run/channel";

// One name for each room of tests.
class ShbfEnd : public ChannelTest
{
};
class ShbfLimits : public ChannelTest
{
};
class ShbfPath : public ChannelTest
{
};
class ShbfRhythm : public ChannelTest
{
};
class ShbfWire : public ChannelTest
{
};

// ---- Peers that speak the wire by hand --------------------------------------------------------------------

std::string head(uint16_t kind, uint32_t length, uint16_t magic = SHBF_MAGIC)
{
    const shbf_head wire = {magic, kind, length};
    return std::string(reinterpret_cast<const char *>(&wire), sizeof wire);
}

void send_raw(int fd, const std::string &bytes, const std::vector<int> &files = {})
{
    iovec part = {const_cast<char *>(bytes.data()), bytes.size()};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    std::vector<char> control(CMSG_SPACE(files.size() * sizeof(int)));
    if (!files.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr *carried = CMSG_FIRSTHDR(&message);
        carried->cmsg_level = SOL_SOCKET;
        carried->cmsg_type = SCM_RIGHTS;
        carried->cmsg_len = CMSG_LEN(files.size() * sizeof(int));
        memcpy(CMSG_DATA(carried), files.data(), files.size() * sizeof(int));
    }
    EXPECT_EQ(sendmsg(fd, &message, MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size())) << strerror(errno);
}

int raw_socket()
{
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

// A descriptor that closes itself.
struct File {
    explicit File(int descriptor) : fd(descriptor) {}
    ~File() { close(fd); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    operator int() const { return fd; }
    const int fd;
};

int memory_file(size_t size, int seals)
{
    const int file = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    EXPECT_EQ(ftruncate(file, static_cast<off_t>(size)), 0);
    EXPECT_EQ(fcntl(file, F_ADD_SEALS, seals), 0);
    return file;
}
const int good_seals = F_SEAL_SHRINK | F_SEAL_FUTURE_WRITE;

// A receiver by hand.
struct RawReceiver {
    explicit RawReceiver(const char *channel) : fd(raw_socket())
    {
        sockaddr_un address;
        socklen_t size;
        EXPECT_EQ(shbf_path_address(channel, &address, &size), 0);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&address), size), 0) << strerror(errno);
    }
    ~RawReceiver()
    {
        shbf_receipt_unmap(page);
        close(fd);
    }
    RawReceiver(const RawReceiver &) = delete;
    RawReceiver &operator=(const RawReceiver &) = delete;

    bool greeted(Loop &loop)
    {
        return loop.run_until([&] {
            void *buffer;
            int file;
            if (shbf_wire_receive(fd, &buffer, &file) != SHBF_GREETED)
                return false;
            page = shbf_receipt_map(file);
            close(file);
            return page != nullptr;
        });
    }
    // Whether the broadcaster has hung up.
    bool cut_off() const
    {
        char byte;
        return recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0 || errno == ECONNRESET;
    }
    const int fd;
    shbf_receipt *page = nullptr;
};

// A broadcaster by hand.
struct RawBroadcaster {
    explicit RawBroadcaster(const char *channel) : listener(raw_socket())
    {
        sockaddr_un address;
        socklen_t size;
        EXPECT_EQ(shbf_path_address(channel, &address, &size), 0);
        unlink((root + channel).c_str());
        EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), size), 0) << strerror(errno);
        EXPECT_EQ(listen(listener, 8), 0);
    }
    ~RawBroadcaster()
    {
        close(listener);
        hang_up();
    }
    RawBroadcaster(const RawBroadcaster &) = delete;
    RawBroadcaster &operator=(const RawBroadcaster &) = delete;

    bool accepted(Loop &loop)
    {
        return loop.run_until([&] {
            fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            return fd >= 0;
        });
    }
    void greet()
    {
        const File page(memory_file(4096, F_SEAL_SHRINK));
        send_raw(fd, head(SHBF_GREETING, 0), {page});
    }
    // Whether the receiver has hung up.
    bool left() const
    {
        char byte;
        return recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0 || errno == ECONNRESET;
    }
    void hang_up()
    {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }
    const int listener;
    int fd = -1;
};

// The process has no descriptor free but `spare` ones until this goes.
struct NoDescriptors {
    explicit NoDescriptors(rlim_t spare = 0)
    {
        getrlimit(RLIMIT_NOFILE, &before);
        rlimit now = before;
        int free_one;
        std::vector<int> fillers; // the lowest free numbers, so that the limit is met exactly
        const std::set<int> open_now = open_descriptors();
        const int highest = *open_now.rbegin();
        while ((free_one = dup(0)) < highest)
            fillers.push_back(free_one);
        held = fillers;
        now.rlim_cur = static_cast<rlim_t>(free_one) + spare;
        close(free_one);
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &now), 0);
    }
    ~NoDescriptors()
    {
        setrlimit(RLIMIT_NOFILE, &before);
        for (const int fd : held)
            close(fd);
    }
    NoDescriptors(const NoDescriptors &) = delete;
    NoDescriptors &operator=(const NoDescriptors &) = delete;
    rlimit before = {};
    std::vector<int> held;
};

std::string line_of(const char *what, int error)
{
    return std::string("[shbf] ") + path + ": " + what + ": " + strerror(error) + "\n";
}

// ---- Who may take part ------------------------------------------------------------------------------------

TEST_F(ShbfPath, UsersAreListedByNumber)
{
    const struct {
        const char *list;
        uid_t uid;
        bool listed, malformed;
    } rows[] = {
        {nullptr, 0, false, false},
        {"", 0, false, false},
        {"0", 0, true, false},
        {"1000", 1000, true, false},
        {"1000", 100, false, false},
        {"1000", 10000, false, false},
        {"1,2,3", 1, true, false},
        {"1,2,3", 2, true, false},
        {"1,2,3", 3, true, false},
        {"1,2,3", 4, false, false},
        {"1,2,", 2, true, false},
        {"any", 77, true, false},
        {"5,any", 77, true, false},
        {"anyone", 77, false, true},
        {"an", 77, false, true},
        {"ANY", 77, false, true},
        {"-1", 4294967295U, false, true},
        {"+5", 5, false, true},
        {" 5", 5, false, true},
        {"5 ", 5, false, true},
        {"0x5", 0, false, true},
        {"x,5", 5, true, true},
        {"5,x", 5, true, true},
        {"5,,6", 6, true, true},
        {"4294967294", 4294967294U, true, false},
        {"4294967295", 4294967295U, false, true}, // no user's: it means "none" to the system
        {"4294967296", 0, false, true},
        {"18446744073709551616", 0, false, true},
    };
    for (const auto &row : rows) {
        bool malformed = false;
        EXPECT_EQ(shbf_uid_listed(row.list, row.uid, &malformed), row.listed)
            << (row.list ? row.list : "null");
        EXPECT_EQ(malformed, row.malformed) << (row.list ? row.list : "null");
    }
}

TEST_F(ShbfPath, ListThatIsNotOneIsLogged)
{
    LogCapture log;
    Loop loop;
    const std::string line = "[shbf] NARO_SHBF_ALLOW_UID is 'root': wanted are numbers of users with commas "
                             "between, or \"any\"\n";
    setenv("NARO_SHBF_ALLOW_UID", "root", 1);
    Broadcaster brd(path);
    EXPECT_EQ(log.count(line), 1u);
    Receiver rcv(loop, path);
    EXPECT_EQ(log.count(line), 2u);
    setenv("NARO_SHBF_ALLOW_UID", "0,1000", 1);
    Broadcaster other("/run/other");
    EXPECT_EQ(log.lines().size(), 2u);
}

TEST_F(ShbfPath, LengthHasALimit)
{
    const std::string longest = "/run/" + std::string(75, 'x');
    EXPECT_EQ(shbf_path_check(longest.c_str()), 0);
    EXPECT_EQ(shbf_path_check((longest + "x").c_str()), -ENAMETOOLONG);
    EXPECT_EQ(shbf_path_check("/"), -EINVAL);
    EXPECT_EQ(shbf_path_check("x"), -EINVAL);
    errno = 0;
    EXPECT_EQ(shbfev_brd_create((longest + "x").c_str()), nullptr);
    EXPECT_EQ(errno, ENAMETOOLONG);
    Loop loop;
    errno = 0;
    EXPECT_EQ(shbfev_rcv_create(loop.ev, "x"), nullptr);
    EXPECT_EQ(errno, EINVAL);
    Broadcaster brd(longest.c_str());
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, longest.c_str());
    EXPECT_TRUE(meet(loop, rcv));
}

// ---- Whose path it is -------------------------------------------------------------------------------------

TEST_F(ShbfPath, LockDeletedByHandDoesNotGiveTheLivingAway)
{
    Loop loop;
    Broadcaster brd(path), second(path);
    ASSERT_EQ(brd.start(loop), 0);
    ASSERT_EQ(unlink((root + path + ".lock").c_str()), 0);
    EXPECT_EQ(second.start(loop), -EADDRINUSE);
    Receiver rcv(loop, path);
    EXPECT_TRUE(meet(loop, rcv));
    EXPECT_EQ(brd.receivers(), 1);
}

// Between its bind and its listen a starting broadcaster looks dead; its lock says that it is not.
TEST_F(ShbfPath, HeldLockIsALivingBroadcaster)
{
    Loop loop;
    const File stale(raw_socket());
    sockaddr_un address;
    socklen_t size;
    ASSERT_EQ(shbf_path_address(path, &address, &size), 0);
    ASSERT_EQ(bind(stale, reinterpret_cast<sockaddr *>(&address), size), 0);
    Broadcaster brd(path);
    {
        const File lock(open((root + path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        ASSERT_EQ(flock(lock, LOCK_EX), 0);
        EXPECT_EQ(brd.start(loop), -EADDRINUSE);
        EXPECT_EQ(access((root + path).c_str(), F_OK), 0);
    }
    EXPECT_EQ(brd.start(loop), 0);
    // And from now on it holds the lock itself, until its end.
    const File lock(open((root + path + ".lock").c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_EQ(flock(lock, LOCK_EX | LOCK_NB), -1);
    brd.destroy();
    EXPECT_EQ(flock(lock, LOCK_EX | LOCK_NB), 0);
}

TEST_F(ShbfPath, SocketOfAnotherProgramIsTakenOnlyWhenDead)
{
    Loop loop;
    sockaddr_un address;
    socklen_t size;
    ASSERT_EQ(shbf_path_address(path, &address, &size), 0);
    const int other = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(other, reinterpret_cast<sockaddr *>(&address), size), 0);
    ASSERT_EQ(listen(other, 1), 0);
    Broadcaster brd(path);
    EXPECT_EQ(brd.start(loop), -EADDRINUSE);
    close(other);
    EXPECT_EQ(brd.start(loop), 0);
}

TEST_F(ShbfPath, BusyBroadcasterIsALivingOne)
{
    Loop loop;
    RawBroadcaster other(path);
    ASSERT_EQ(listen(other.listener, 0), 0);
    const RawReceiver waiting(path); // fills the queue at its door
    Broadcaster brd(path);
    EXPECT_EQ(brd.start(loop), -EADDRINUSE);
}

TEST_F(ShbfPath, LinksAreNotFollowed)
{
    Loop loop;
    const std::string precious = root + "/run/precious";
    std::ofstream(precious) << "text";
    Broadcaster brd(path);
    ASSERT_EQ(symlink("precious", (root + path).c_str()), 0);
    EXPECT_EQ(brd.start(loop), -EEXIST);
    ASSERT_EQ(unlink((root + path).c_str()), 0);
    ASSERT_EQ(unlink((root + path + ".lock").c_str()), 0);
    ASSERT_EQ(symlink("precious", (root + path + ".lock").c_str()), 0);
    EXPECT_EQ(brd.start(loop), -ELOOP);
    ASSERT_EQ(unlink((root + path + ".lock").c_str()), 0);
    EXPECT_EQ(std::filesystem::file_size(precious), 4u);
    EXPECT_EQ(brd.start(loop), 0);
}

TEST_F(ShbfPath, DestroyLeavesWhatIsNotItsOwn)
{
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    ASSERT_EQ(rename((root + path).c_str(), (root + "/run/kept").c_str()),
              0); // so that its number stays taken
    std::ofstream(root + path) << "precious";
    brd.destroy();
    EXPECT_EQ(access((root + path).c_str(), F_OK), 0);
}

// What ended its loop still sends to those who are there, but the channel is free for another.
TEST_F(ShbfPath, EndOfTheLoopFreesThePath)
{
    Loop first, second;
    Broadcaster old(path), heir(path);
    ASSERT_EQ(old.start(first), 0);
    Receiver rcv(second, path);
    ASSERT_TRUE(meet(first, rcv, &second));
    EXPECT_EQ(heir.start(second), -EADDRINUSE);
    first.end();
    EXPECT_NE(access((root + path).c_str(), F_OK), 0);
    ASSERT_EQ(heir.start(second), 0);
    EXPECT_EQ(old.send("still here"), 0);
    ASSERT_TRUE(second.run_until([&] { return rcv.messages.size() == 1; }));
    old.destroy();
    EXPECT_EQ(access((root + path).c_str(), F_OK), 0);
    ASSERT_TRUE(second.run_until([&] { return rcv.closed == 1 && rcv.connected(); }));
    EXPECT_EQ(heir.receivers(), 1);
}

struct Fault {
    const char *call;
    std::string path;
    int error;
};
int inject(void *context, const char *call, const char *where)
{
    const Fault *fault = static_cast<const Fault *>(context);
    return strcmp(call, fault->call) == 0 && fault->path == where ? fault->error : 0;
}

TEST_F(ShbfPath, StartThatFailsSaysWhyAndLeavesNothing)
{
    Loop loop;
    Broadcaster brd("/run/deep/channel");
    const std::set<int> before = [] {
        (void)naro_root_fd(); // opened once and kept
        return open_descriptors();
    }();
    Fault faults[] = {{"mkdir", "/run/deep", EROFS},
                      {"open", "/run/deep/channel.lock", ENOSPC},
                      {"unlink", "/run/deep/channel", EPERM}};
    for (Fault &fault : faults) {
        if (strcmp(fault.call, "unlink") == 0) {
            const int stale = raw_socket();
            sockaddr_un address;
            socklen_t size;
            ASSERT_EQ(shbf_path_address("/run/deep/channel", &address, &size), 0);
            ASSERT_EQ(bind(stale, reinterpret_cast<sockaddr *>(&address), size), 0);
            close(stale);
        }
        naro_file_set_fault(inject, &fault);
        EXPECT_EQ(brd.start(loop), -fault.error) << fault.call;
        naro_file_set_fault(nullptr, nullptr);
        EXPECT_EQ(open_descriptors(), before);
    }
    {
        const NoDescriptors none(0);
        EXPECT_EQ(brd.start(loop), -EMFILE);
    }
    for (rlim_t spare = 1; spare <= 2; spare++) { // the lock, then the socket, or the event descriptor fails
        const NoDescriptors none(spare);
        EXPECT_EQ(brd.start(loop), -EMFILE) << spare;
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(brd.start(loop), 0);
}

// ---- The wire ---------------------------------------------------------------------------------------------

TEST_F(ShbfWire, RoomIsAThirdOfWhatTheKernelGrants)
{
    EXPECT_EQ(shbf_wire_room_of(0), 0u);
    EXPECT_EQ(shbf_wire_room_of(-1), 0u);
    EXPECT_EQ(shbf_wire_room_of(4608), 1536u);
    EXPECT_EQ(shbf_wire_room_of(327680), 109226u); // the default of a 32-bit machine: room for a frame
    EXPECT_EQ(shbf_wire_room_of(393215), 131071u);
    EXPECT_EQ(shbf_wire_room_of(393216), 131072u);
    EXPECT_EQ(shbf_wire_room_of(4000000), 131072u);
    const File fd(raw_socket());
    const size_t room = shbf_wire_room(fd);
    int granted = 0;
    socklen_t size = sizeof granted;
    ASSERT_EQ(getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &granted, &size), 0);
    EXPECT_EQ(room, shbf_wire_room_of(granted));
    EXPECT_EQ(shbf_wire_room(-1), 0u);
}

TEST_F(ShbfWire, BuffersAreAlignedAndCounted)
{
    std::vector<void *> buffers;
    for (const size_t size : {0, 1, 64, 92224}) {
        buffers.push_back(shbf_buffer_create(size));
        ASSERT_NE(buffers.back(), nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(buffers.back()) % 64, 0u);
        EXPECT_EQ(shbf_size(buffers.back()), size);
        EXPECT_EQ(shbf_buffers_out(), buffers.size());
    }
    LogCapture log;
    shbf_rcv_global_init();
    shbf_rcv_global_init();
    shbf_rcv_global_exit();
    EXPECT_TRUE(log.lines().empty());
    shbf_rcv_global_exit();
    EXPECT_TRUE(log.has(NARO_LOG_WARNING, "[shbf] 4 received buffers were not given back\n"));
    for (void *buffer : buffers)
        shbf_free(buffer);
    EXPECT_EQ(shbf_buffers_out(), 0u);
    log.clear();
    shbf_rcv_global_init();
    shbf_rcv_global_exit();
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ShbfWire, MessageFileIsSealedAndClosesOnExec)
{
    const File file(shbf_wire_file("text", 4));
    ASSERT_GE(file.fd, 0);
    const int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_FUTURE_WRITE | F_SEAL_SEAL;
    EXPECT_EQ(fcntl(file, F_GET_SEALS) & seals, seals);
    EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC);
    char text[8];
    EXPECT_EQ(pread(file, text, sizeof text, 0), 4);
    EXPECT_EQ(memcmp(text, "text", 4), 0);
    EXPECT_EQ(pwrite(file, "x", 1, 0), -1);
}

TEST_F(ShbfWire, ReceiptPageIsSealedAndClosesOnExec)
{
    const shbf_receipt *page = nullptr;
    const File file(shbf_receipt_create(&page));
    ASSERT_GE(file.fd, 0);
    const int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
    EXPECT_EQ(fcntl(file, F_GET_SEALS) & (seals | F_SEAL_FUTURE_WRITE), seals);
    EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(*page, 0u);
    shbf_receipt *theirs = shbf_receipt_map(file);
    ASSERT_NE(theirs, nullptr);
    theirs->store(7);
    EXPECT_EQ(*page, 7u);
    shbf_receipt_unmap(theirs);
    shbf_receipt_unmap(page);
    shbf_receipt_unmap(nullptr);
}

// Everything that a packet may be. `sent` writes it to the socket; the good ones are there to show that the
// bad ones fail for the reason named.
struct Packet {
    const char *name;
    void (*sent)(int fd);
    enum shbf_arrival arrival;
    std::string message = "";
};
const Packet packets[] = {
    {"bytes", [](int fd) { send_raw(fd, head(SHBF_BYTES, 4) + "text"); }, SHBF_MESSAGE, "text"},
    {"no bytes", [](int fd) { send_raw(fd, head(SHBF_BYTES, 0)); }, SHBF_MESSAGE, ""},
    {"bytes through the sender", [](int fd) { EXPECT_EQ(shbf_wire_send_bytes(fd, "text", 4), 0); },
     SHBF_MESSAGE, "text"},
    {"file", [](int fd) { send_raw(fd, head(SHBF_FILE, 3), {File(memory_file(3, good_seals))}); },
     SHBF_MESSAGE, std::string(3, '\0')},
    {"empty file", [](int fd) { send_raw(fd, head(SHBF_FILE, 0), {File(memory_file(0, good_seals))}); },
     SHBF_MESSAGE, ""},
    {"file through the sender",
     [](int fd) { EXPECT_EQ(shbf_wire_send_file(fd, File(shbf_wire_file("text", 4)), 4), 0); }, SHBF_MESSAGE,
     "text"},
    {"greeting", [](int fd) { send_raw(fd, head(SHBF_GREETING, 0), {File(memory_file(1, 0))}); },
     SHBF_GREETED},
    {"greeting through the sender",
     [](int fd) { EXPECT_EQ(shbf_wire_send_greeting(fd, File(memory_file(1, 0))), 0); }, SHBF_GREETED},
    {"packet of no bytes at all", [](int fd) { send_raw(fd, ""); }, SHBF_END},
    {"one byte", [](int fd) { send_raw(fd, "x"); }, SHBF_GARBAGE},
    {"head cut short", [](int fd) { send_raw(fd, head(SHBF_BYTES, 0).substr(0, 7)); }, SHBF_GARBAGE},
    {"wrong magic", [](int fd) { send_raw(fd, head(SHBF_BYTES, 0, SHBF_MAGIC + 1)); }, SHBF_GARBAGE},
    {"kind 0", [](int fd) { send_raw(fd, head(0, 0)); }, SHBF_GARBAGE},
    {"kind 4", [](int fd) { send_raw(fd, head(4, 0)); }, SHBF_GARBAGE},
    {"a byte fewer than declared", [](int fd) { send_raw(fd, head(SHBF_BYTES, 4) + "tex"); }, SHBF_GARBAGE},
    {"a byte more than declared", [](int fd) { send_raw(fd, head(SHBF_BYTES, 4) + "texts"); }, SHBF_GARBAGE},
    {"bytes with a descriptor",
     [](int fd) { send_raw(fd, head(SHBF_BYTES, 4) + "text", {File(memory_file(4, good_seals))}); },
     SHBF_GARBAGE},
    {"bytes with three descriptors",
     [](int fd) {
         send_raw(fd, head(SHBF_BYTES, 1) + "t", {0, 0, 0});
     },
     SHBF_GARBAGE},
    {"file without one", [](int fd) { send_raw(fd, head(SHBF_FILE, 4)); }, SHBF_GARBAGE},
    {"file with bytes behind",
     [](int fd) { send_raw(fd, head(SHBF_FILE, 4) + "x", {File(memory_file(4, good_seals))}); },
     SHBF_GARBAGE},
    {"two files",
     [](int fd) {
         const File file(memory_file(4, good_seals));
         send_raw(fd, head(SHBF_FILE, 4), {file, file});
     },
     SHBF_GARBAGE},
    {"file of a byte less",
     [](int fd) { send_raw(fd, head(SHBF_FILE, 4), {File(memory_file(3, good_seals))}); }, SHBF_GARBAGE},
    {"file of a byte more",
     [](int fd) { send_raw(fd, head(SHBF_FILE, 4), {File(memory_file(5, good_seals))}); }, SHBF_GARBAGE},
    {"file of the largest size",
     [](int fd) {
         send_raw(fd, head(SHBF_FILE, SHBFEV_MESSAGE_MAX),
                  {File(memory_file(SHBFEV_MESSAGE_MAX, good_seals))});
     },
     SHBF_MESSAGE, std::string(SHBFEV_MESSAGE_MAX, '\0')},
    {"file of more than the largest size",
     [](int fd) {
         send_raw(fd, head(SHBF_FILE, SHBFEV_MESSAGE_MAX + 1),
                  {File(memory_file(SHBFEV_MESSAGE_MAX + 1, good_seals))});
     },
     SHBF_GARBAGE},
    {"file that is not sealed", [](int fd) { send_raw(fd, head(SHBF_FILE, 4), {File(memory_file(4, 0))}); },
     SHBF_GARBAGE},
    {"file that may shrink",
     [](int fd) {
         send_raw(fd, head(SHBF_FILE, 4), {File(memory_file(4, F_SEAL_GROW | F_SEAL_FUTURE_WRITE))});
     },
     SHBF_GARBAGE},
    {"file that may be written",
     [](int fd) { send_raw(fd, head(SHBF_FILE, 4), {File(memory_file(4, F_SEAL_SHRINK | F_SEAL_GROW))}); },
     SHBF_GARBAGE},
    {"file on a disk",
     [](int fd) {
         std::ofstream(root + "/file") << "text";
         send_raw(fd, head(SHBF_FILE, 4), {File(open((root + "/file").c_str(), O_RDONLY | O_CLOEXEC))});
     },
     SHBF_GARBAGE},
    {"a pipe for a file",
     [](int fd) {
         int ends[2];
         EXPECT_EQ(pipe(ends), 0);
         send_raw(fd, head(SHBF_FILE, 4), {ends[0]});
         close(ends[0]);
         close(ends[1]);
     },
     SHBF_GARBAGE},
    {"greeting without a page", [](int fd) { send_raw(fd, head(SHBF_GREETING, 0)); }, SHBF_GARBAGE},
    {"greeting with a length",
     [](int fd) { send_raw(fd, head(SHBF_GREETING, 1), {File(memory_file(4096, F_SEAL_SHRINK))}); },
     SHBF_GARBAGE},
    {"greeting with bytes",
     [](int fd) { send_raw(fd, head(SHBF_GREETING, 0) + "x", {File(memory_file(4096, F_SEAL_SHRINK))}); },
     SHBF_GARBAGE},
};

TEST_F(ShbfWire, PacketsAreTakenForWhatTheyAre)
{
    for (const Packet &packet : packets) {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        const std::set<int> before = open_descriptors();
        void *buffer = &ends;
        int file = 0;
        EXPECT_EQ(shbf_wire_receive(ends[1], &buffer, &file), SHBF_NOTHING);
        packet.sent(ends[0]);
        EXPECT_EQ(shbf_wire_receive(ends[1], &buffer, &file), packet.arrival) << packet.name;
        if (packet.arrival == SHBF_MESSAGE) {
            ASSERT_NE(buffer, nullptr) << packet.name;
            EXPECT_TRUE(std::string(static_cast<char *>(buffer), shbf_size(buffer)) == packet.message)
                << packet.name;
            shbf_free(buffer);
        } else {
            EXPECT_EQ(buffer, nullptr) << packet.name;
        }
        if (packet.arrival == SHBF_GREETED) {
            EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC);
            close(file);
        } else {
            EXPECT_EQ(file, -1) << packet.name;
        }
        EXPECT_EQ(open_descriptors(), before) << packet.name;
        EXPECT_EQ(shbf_buffers_out(), 0u) << packet.name;
        close(ends[0]);
        if (packet.arrival != SHBF_GARBAGE) {
            EXPECT_EQ(shbf_wire_receive(ends[1], &buffer, &file), SHBF_END) << packet.name;
        }
        close(ends[1]);
    }
}

// A peer that sends any of the bad ones is put out, and no one else notices.
// A peer that closes without having read everything shows as ECONNRESET before what it sent itself, and it may do so
// when its packet has been looked at but not yet taken.
TEST_F(ShbfWire, PacketOfAPeerThatHasJustClosedIsTaken)
{
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair), 0);
    ASSERT_EQ(shbf_wire_send_bytes(pair[1], "bye", 3), 0);
    recvmsg_errors = {ECONNRESET, EINTR};
    void *buffer;
    int file;
    EXPECT_EQ(shbf_wire_receive(pair[0], &buffer, &file), SHBF_MESSAGE);
    EXPECT_TRUE(recvmsg_errors.empty());
    EXPECT_EQ(std::string(static_cast<char *>(buffer), shbf_size(buffer)), "bye");
    shbf_free(buffer);
    close(pair[0]);
    close(pair[1]);
}

TEST_F(ShbfWire, ReceiverThatSendsGarbageIsPutOut)
{
    for (const Packet &packet : packets) {
        if (packet.arrival == SHBF_MESSAGE)
            continue;
        LogCapture log;
        Loop loop;
        Broadcaster brd(path);
        ASSERT_EQ(brd.start(loop), 0);
        Receiver rcv(loop, path);
        ASSERT_TRUE(meet(loop, rcv));
        const std::set<int> before = open_descriptors();
        {
            RawReceiver raw(path);
            ASSERT_TRUE(raw.greeted(loop));
            EXPECT_EQ(brd.receivers(), 2);
            send_raw(raw.fd, head(SHBF_BYTES, 4) + "fine");
            packet.sent(raw.fd);
            ASSERT_TRUE(loop.run_until([&] { return raw.cut_off(); })) << packet.name;
        }
        EXPECT_EQ(brd.receivers(), 1) << packet.name;
        EXPECT_EQ(brd.messages, std::vector<std::string>{"fine"});
        if (packet.arrival == SHBF_END) {
            EXPECT_TRUE(brd.errors.empty()) << packet.name;
        } else {
            EXPECT_EQ(brd.errors, (std::vector<std::pair<int, int>>{{EPROTO, EPROTO}})) << packet.name;
            EXPECT_TRUE(
                log.has(NARO_LOG_WARNING, line_of("a receiver does not keep to the protocol", EPROTO)));
        }
        EXPECT_EQ(open_descriptors(), before) << packet.name;
        EXPECT_EQ(brd.send("go on"), 0);
        ASSERT_TRUE(loop.run_until([&] { return rcv.messages.size() == 1; }));
        EXPECT_EQ(rcv.closed, 0);
    }
}

TEST_F(ShbfWire, BroadcasterThatSendsGarbageIsLeft)
{
    for (const Packet &packet : packets) {
        if (packet.arrival == SHBF_MESSAGE)
            continue;
        LogCapture log;
        Loop loop;
        Receiver rcv(loop, path, false);
        RawBroadcaster raw(path);
        ASSERT_EQ(shbfev_rcv_start(rcv.handle), 0);
        ASSERT_TRUE(raw.accepted(loop));
        const std::set<int> before = open_descriptors();
        EXPECT_LT(rcv.send("too early"), 0);
        raw.greet();
        send_raw(raw.fd, head(SHBF_BYTES, 4) + "fine");
        packet.sent(raw.fd);
        ASSERT_TRUE(loop.run_until([&] { return raw.left(); })) << packet.name;
        EXPECT_EQ(rcv.closed, 1) << packet.name;
        EXPECT_FALSE(rcv.connected());
        EXPECT_EQ(rcv.messages, std::vector<std::string>{"fine"});
        if (packet.arrival == SHBF_GARBAGE) {
            EXPECT_TRUE(
                log.has(NARO_LOG_WARNING, line_of("the broadcaster does not keep to the protocol", EPROTO)))
                << packet.name;
        }
        raw.hang_up();
        // And it tries again.
        ASSERT_TRUE(raw.accepted(loop));
        raw.greet();
        ASSERT_TRUE(meet(loop, rcv));
        EXPECT_EQ(open_descriptors(), before) << packet.name;
        EXPECT_EQ(mapped_memory_files(), 1u) << packet.name;
    }
}

TEST_F(ShbfWire, BroadcasterGreetsOnce)
{
    LogCapture log;
    Loop loop;
    Receiver rcv(loop, path, false);
    RawBroadcaster raw(path);
    ASSERT_EQ(shbfev_rcv_start(rcv.handle), 0);
    ASSERT_TRUE(raw.accepted(loop));
    raw.greet();
    ASSERT_TRUE(meet(loop, rcv));
    raw.greet();
    ASSERT_TRUE(loop.run_until([&] { return raw.left(); }));
    EXPECT_EQ(rcv.closed, 1);
    EXPECT_TRUE(log.has(NARO_LOG_WARNING, line_of("the broadcaster's greeting is wrong", EPROTO)));
    EXPECT_EQ(mapped_memory_files(), 0u);
}

TEST_F(ShbfWire, GreetingThatIsNotOneIsNoConnection)
{
    const struct {
        const char *name;
        void (*sent)(int fd);
        const char *line;
        int error;
    } rows[] = {
        {"page that may shrink",
         [](int fd) { send_raw(fd, head(SHBF_GREETING, 0), {File(memory_file(4096, F_SEAL_GROW))}); },
         "the broadcaster's greeting is wrong", EPROTO},
        {"page too small",
         [](int fd) { send_raw(fd, head(SHBF_GREETING, 0), {File(memory_file(4095, F_SEAL_SHRINK))}); },
         "the broadcaster's greeting is wrong", EPROTO},
        {"page too large",
         [](int fd) { send_raw(fd, head(SHBF_GREETING, 0), {File(memory_file(4097, F_SEAL_SHRINK))}); },
         "the broadcaster's greeting is wrong", EPROTO},
        {"no memory file", [](int fd) { send_raw(fd, head(SHBF_GREETING, 0), {0}); },
         "the broadcaster's greeting is wrong", EPROTO},
        {"page that cannot be written",
         [](int fd) {
             send_raw(fd, head(SHBF_GREETING, 0), {File(memory_file(4096, F_SEAL_SHRINK | F_SEAL_WRITE))});
         },
         "the broadcaster's greeting is wrong", EPROTO},
        {"message first", [](int fd) { send_raw(fd, head(SHBF_BYTES, 4) + "text"); },
         "no greeting from the broadcaster", EPROTO},
        {"file first", [](int fd) { send_raw(fd, head(SHBF_FILE, 4), {File(memory_file(4, good_seals))}); },
         "no greeting from the broadcaster", EPROTO},
        {"end first", [](int fd) { shutdown(fd, SHUT_RDWR); }, "the broadcaster does not let us in", EACCES},
    };
    for (const auto &row : rows) {
        LogCapture log;
        Loop loop;
        Receiver rcv(loop, path, false);
        RawBroadcaster raw(path);
        ASSERT_EQ(shbfev_rcv_start(rcv.handle), 0);
        ASSERT_TRUE(raw.accepted(loop));
        const std::set<int> before = open_descriptors();
        row.sent(raw.fd);
        ASSERT_TRUE(loop.run_until([&] { return !log.lines().empty(); })) << row.name;
        EXPECT_EQ(log.texts(NARO_LOG_WARNING), std::vector<std::string>{line_of(row.line, row.error)})
            << row.name;
        EXPECT_FALSE(rcv.connected());
        EXPECT_TRUE(raw.left());
        raw.hang_up();
        ASSERT_TRUE(raw.accepted(loop));
        EXPECT_EQ(open_descriptors(), before) << row.name;
        EXPECT_EQ(mapped_memory_files(), 0u) << row.name;
        raw.greet();
        ASSERT_TRUE(meet(loop, rcv));
        EXPECT_EQ(rcv.closed, 0) << row.name;
        EXPECT_TRUE(rcv.messages.empty());
        EXPECT_EQ(shbf_buffers_out(), 0u);
    }
}

// ---- Receipts that are lies -------------------------------------------------------------------------------

class FalseReceipts : public ChannelTest
{
  protected:
    FalseReceipts() : brd(path)
    {
        EXPECT_EQ(brd.start(loop), 0);
        raw = std::make_unique<RawReceiver>(path);
        EXPECT_TRUE(raw->greeted(loop));
    }
    void expect_cut_off()
    {
        ASSERT_TRUE(loop.run_until([&] { return brd.receivers() == 0; }));
        EXPECT_EQ(brd.errors, (std::vector<std::pair<int, int>>{{EPROTO, EPROTO}}));
        EXPECT_TRUE(log.has(NARO_LOG_WARNING, line_of("a receiver gave false receipts", EPROTO)));
    }
    LogCapture log;
    Loop loop;
    Broadcaster brd;
    std::unique_ptr<RawReceiver> raw;
};

TEST_F(FalseReceipts, ForMoreThanWasSent)
{
    EXPECT_EQ(brd.send("one"), 0);
    raw->page->store(1); // true enough, if early
    EXPECT_EQ(brd.send("two"), 0);
    loop.run_ready();
    EXPECT_EQ(brd.receivers(), 1);
    raw->page->store(3);
    EXPECT_EQ(brd.send("three"), 0);
    expect_cut_off();
}

TEST_F(FalseReceipts, TakenBack)
{
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(brd.send("x"), 0);
    raw->page->store(2);
    EXPECT_EQ(brd.send("x"), 0);
    loop.run_ready();
    EXPECT_EQ(brd.receivers(), 1);
    raw->page->store(1);
    EXPECT_EQ(brd.send("x"), 0);
    expect_cut_off();
}

// It reads nothing and says that it has read everything: it must not make us pile up memory files in its
// socket.
TEST_F(FalseReceipts, ForWhatLiesUnread)
{
    uint32_t sent = 0;
    const std::string large(200000, 'x');
    while (sent < 1000 && brd.receivers() == 1) {
        EXPECT_EQ(brd.send(large), 0);
        raw->page->store(++sent);
        loop.run_ready();
    }
    EXPECT_LT(sent, 64u);
    EXPECT_GT(sent, 2u); // some slack is meant
    expect_cut_off();
}

TEST_F(FalseReceipts, ForBytesCostTheReceiverItsOwnMessages)
{
    uint32_t sent = 0;
    for (; sent < 5000; sent++) {
        EXPECT_EQ(brd.send("x"), 0);
        raw->page->store(sent + 1);
        if (log.has("x") || sent > 4000)
            break;
        // As soon as its socket is full nothing is counted as sent, and the next receipt is one too many.
        if (brd.receivers() == 0)
            break;
        loop.run_ready();
    }
    EXPECT_LT(sent, 4000u);
    expect_cut_off();
}

// ---- Rhythm -----------------------------------------------------------------------------------------------

TEST_F(ShbfRhythm, ReceiverTriesEvery50Milliseconds)
{
    FakeClock clock;
    Loop loop;
    Receiver rcv(loop, path);
    EXPECT_EQ(clock.armed_timers(), 1u);
    clock.advance_ms(1000);
    EXPECT_EQ(clock.armed_timers(), 1u);
    for (int round = 0; round < 3; round++) {
        Broadcaster brd(path);
        ASSERT_EQ(brd.start(loop), 0);
        loop.run_ready();
        clock.advance_ms(49);
        loop.run_ready();
        EXPECT_EQ(brd.receivers(), 0);
        EXPECT_FALSE(rcv.connected());
        clock.advance_ms(1);
        loop.run_ready();
        EXPECT_EQ(brd.receivers(), 1);
        EXPECT_TRUE(rcv.connected());
        EXPECT_EQ(clock.armed_timers(), 0u);
        brd.destroy();
        ASSERT_TRUE(loop.run_until([&] { return rcv.closed == round + 1; }));
        EXPECT_EQ(clock.armed_timers(), 1u);
    }
}

TEST_F(ShbfRhythm, LossesAreSaidOnceASecond)
{
    FakeClock clock;
    LogCapture log;
    Loop loop, slow;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(slow, path), quick(loop, path);
    clock.advance_ms(50);
    ASSERT_TRUE(meet(loop, rcv, &slow) && meet(loop, quick));
    const auto send = [&](int count) {
        for (int i = 0; i < count; i++) {
            quick.messages.clear();
            EXPECT_EQ(brd.send("x"), 0);
            ASSERT_TRUE(loop.run_until([&] { return quick.messages.size() == 1; }));
        }
    };
    const auto lost = [](int count) {
        return "[shbf] /run/channel: receiver " + std::to_string(getpid()) +
               " does not keep up: " + std::to_string(count) + " messages lost\n";
    };
    using Lines = std::vector<std::string>;
    send(64);
    loop.run_ready();
    EXPECT_EQ(clock.armed_timers(), 0u);
    send(36);
    loop.run_ready();
    clock.advance_ms(999);
    EXPECT_EQ(log.texts(NARO_LOG_WARNING), Lines{});
    clock.advance_ms(1);
    EXPECT_EQ(log.texts(NARO_LOG_WARNING), Lines{lost(36)});
    // More within the next second: said at its end.
    send(2);
    clock.advance_ms(500);
    send(3);
    loop.run_ready();
    clock.advance_ms(499);
    EXPECT_EQ(log.texts(NARO_LOG_WARNING), Lines{lost(36)});
    clock.advance_ms(1);
    EXPECT_EQ(log.texts(NARO_LOG_WARNING), (Lines{lost(36), lost(5)}));
    // A quiet second ends it; then it begins anew.
    clock.advance_ms(1000);
    EXPECT_EQ(clock.armed_timers(), 0u);
    clock.advance_ms(10000);
    send(1);
    loop.run_ready();
    EXPECT_EQ(clock.armed_timers(), 1u);
    clock.advance_ms(1000);
    EXPECT_EQ(log.texts(NARO_LOG_WARNING), (Lines{lost(36), lost(5), lost(1)}));
    clock.advance_ms(1000);
    // What has not been said when it leaves is said then.
    send(7);
    rcv.destroy();
    ASSERT_TRUE(loop.run_until([&] { return brd.receivers() == 1; }));
    EXPECT_EQ(log.texts(NARO_LOG_WARNING), (Lines{lost(36), lost(5), lost(1), lost(7)}));
    clock.advance_ms(5000);
    EXPECT_EQ(log.texts(NARO_LOG_WARNING).size(), 4u);
    EXPECT_EQ(clock.armed_timers(), 0u);
}

TEST_F(ShbfRhythm, ErrorsDoNotPutTheReportOff)
{
    FakeClock clock;
    LogCapture log;
    Loop loop, slow;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver lagging(slow, path), rcv(loop, path);
    ASSERT_TRUE(meet(loop, lagging, &slow) && meet(loop, rcv));
    for (int i = 0; i < 65; i++) {
        EXPECT_EQ(brd.send("x"), 0);
        loop.run_ready();
    }
    clock.advance_ms(600);
    {
        const NoDescriptors none;
        EXPECT_EQ(brd.send(std::string(200000, 'x')), -EMFILE);
        loop.run_ready();
        EXPECT_EQ(brd.errors.size(), 1u);
    }
    clock.advance_ms(399);
    const std::string line =
        "[shbf] /run/channel: receiver " + std::to_string(getpid()) + " does not keep up: 2 messages lost\n";
    EXPECT_FALSE(log.has(line));
    clock.advance_ms(1);
    EXPECT_TRUE(log.has(NARO_LOG_WARNING, line));
}

TEST_F(ShbfRhythm, TwoSlowReceiversAreEachSaid)
{
    FakeClock clock;
    LogCapture log;
    Loop loop, slow;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver one(slow, path);
    ASSERT_TRUE(meet(loop, one, &slow));
    for (int i = 0; i < 10; i++)
        EXPECT_EQ(brd.send("x"), 0);
    Receiver two(slow, path);
    // The second one must meet without the first one reading: it has no other loop, so let both read once.
    ASSERT_TRUE(meet(loop, two, &slow));
    for (int i = 0; i < 60; i++)
        EXPECT_EQ(brd.send("x"), 0);
    EXPECT_EQ(brd.send(std::string(4 << 20, 'x')), 0); // too much for both
    loop.run_ready();
    clock.advance_ms(1000);
    const std::string line =
        "[shbf] /run/channel: receiver " + std::to_string(getpid()) + " does not keep up: 1 messages lost\n";
    EXPECT_EQ(log.count(line), 2u);
}

TEST_F(ShbfRhythm, SameErrorIsRaisedOnceASecond)
{
    FakeClock clock;
    LogCapture log;
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    const auto offend = [&] {
        RawReceiver raw(path);
        ASSERT_TRUE(raw.greeted(loop));
        send_raw(raw.fd, "garbage!");
        ASSERT_TRUE(loop.run_until([&] { return raw.cut_off(); }));
    };
    offend();
    offend();
    clock.advance_ms(999);
    offend();
    EXPECT_EQ(brd.errors.size(), 1u);
    clock.advance_ms(1);
    offend();
    EXPECT_EQ(brd.errors.size(), 2u);
    EXPECT_EQ(log.count(line_of("a receiver does not keep to the protocol", EPROTO)), 2u);
    // Another one is raised at once.
    Receiver rcv(loop, path);
    ASSERT_TRUE(meet(loop, rcv));
    const NoDescriptors none;
    const std::string large(200000, 'x');
    EXPECT_EQ(brd.send(large), -EMFILE);
    loop.run_ready();
    ASSERT_EQ(brd.errors.size(), 3u);
    EXPECT_EQ(brd.errors[2], (std::pair<int, int>{EMFILE, EMFILE}));
    EXPECT_EQ(clock.armed_timers(), 0u); // nothing was lost by a receiver's own fault
    // And again when it is still so a second later.
    clock.advance_ms(1000);
    EXPECT_EQ(brd.send(large), -EMFILE);
    loop.run_ready();
    EXPECT_EQ(brd.errors.size(), 4u);
}

TEST_F(ShbfRhythm, LastingTroubleWithConnectingIsSaidOnceAMinute)
{
    FakeClock clock;
    LogCapture log;
    Loop loop;
    ASSERT_EQ(symlink("channel", (root + path).c_str()), 0); // a link to itself
    Receiver rcv(loop, path);
    const std::string line = line_of("no connection", ELOOP);
    EXPECT_EQ(log.count(line), 1u);
    clock.advance_ms(59999);
    EXPECT_EQ(log.count(line), 1u);
    clock.advance_ms(1);
    EXPECT_EQ(log.count(line), 2u);
    EXPECT_EQ(log.lines().size(), 2u);
    // No broadcaster is no trouble.
    ASSERT_EQ(unlink((root + path).c_str()), 0);
    clock.advance_ms(200000);
    const File dead(raw_socket());
    sockaddr_un address;
    socklen_t size;
    ASSERT_EQ(shbf_path_address(path, &address, &size), 0);
    ASSERT_EQ(bind(dead, reinterpret_cast<sockaddr *>(&address), size), 0);
    clock.advance_ms(200000);
    ASSERT_EQ(unlink((root + path).c_str()), 0);
    std::filesystem::remove_all(root + "/run");
    std::ofstream(root + "/run") << "not a folder";
    clock.advance_ms(200000);
    EXPECT_EQ(log.lines().size(), 2u);
}

// ---- Descriptors run out ----------------------------------------------------------------------------------

TEST_F(ShbfLimits, ReceiverWaitsAtTheDoorUntilADescriptorIsFree)
{
    FakeClock clock;
    LogCapture log;
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    RawReceiver raw(path);
    {
        const NoDescriptors none;
        loop.run_ready();
        const unsigned turns = ev_iteration(loop.ev);
        EXPECT_EQ(brd.errors, (std::vector<std::pair<int, int>>{{EMFILE, EMFILE}}));
        EXPECT_TRUE(log.has(NARO_LOG_WARNING, line_of("a receiver has to wait", EMFILE)));
        // The one who waits does not keep the loop awake: only the clock of the test wakes it.
        ev_run(loop.ev, EVRUN_ONCE);
        EXPECT_EQ(ev_iteration(loop.ev), turns + 1);
        EXPECT_EQ(clock.armed_timers(), 1u);
        clock.advance_ms(50);
        loop.run_ready();
        EXPECT_EQ(clock.armed_timers(), 1u);
        EXPECT_EQ(brd.errors.size(), 1u);
        EXPECT_FALSE(raw.cut_off());
    }
    clock.advance_ms(49);
    loop.run_ready();
    EXPECT_EQ(brd.receivers(), 0);
    clock.advance_ms(1);
    EXPECT_TRUE(raw.greeted(loop));
    EXPECT_EQ(brd.receivers(), 1);
}

TEST_F(ShbfLimits, ReceiverThatCannotBeServedIsSentAway)
{
    LogCapture log;
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    {
        RawReceiver raw(path);
        const NoDescriptors none(1); // enough to accept, not for the page
        ASSERT_TRUE(loop.run_until([&] { return raw.cut_off(); }));
        EXPECT_EQ(brd.errors, (std::vector<std::pair<int, int>>{{EMFILE, EMFILE}}));
        EXPECT_TRUE(log.has(NARO_LOG_WARNING, line_of("a receiver cannot be served", EMFILE)));
        EXPECT_EQ(brd.receivers(), 0);
    }
    RawReceiver raw(path);
    EXPECT_TRUE(raw.greeted(loop));
}

TEST_F(ShbfLimits, MessageThatCannotBeMadeIsAnError)
{
    LogCapture log;
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path);
    ASSERT_TRUE(meet(loop, rcv));
    const std::string large(200000, 'x');
    {
        const NoDescriptors none;
        EXPECT_EQ(brd.send(large), -EMFILE);
        EXPECT_EQ(brd.send(large), -EMFILE);
        EXPECT_EQ(rcv.send(large), -EMFILE);
        EXPECT_EQ(rcv.send(std::string(92224, 'f')), 0); // goes with its bytes and needs none
        EXPECT_EQ(brd.send("small"), 0);
        loop.run_ready();
    }
    EXPECT_EQ(brd.errors, (std::vector<std::pair<int, int>>{{EMFILE, EMFILE}}));
    EXPECT_EQ(log.texts(NARO_LOG_WARNING),
              std::vector<std::string>{line_of("a message could not be sent", EMFILE)});
    EXPECT_EQ(rcv.messages, std::vector<std::string>{"small"});
    EXPECT_EQ(brd.send(large), 0);
    ASSERT_TRUE(loop.run_until([&] { return rcv.messages.size() == 2; }));
}

// One that reached somebody is no error to the caller; the loop still says what did not go out.
TEST_F(ShbfLimits, MessageThatReachedSomeIsSent)
{
    Loop loop, slow;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path), lagging(slow, path);
    ASSERT_TRUE(meet(loop, rcv) && meet(loop, lagging, &slow));
    const std::string frame(92224, 'x');
    EXPECT_EQ(brd.send(frame), 0);
    ASSERT_TRUE(loop.run_until([&] { return rcv.messages.size() == 1; }));
    {
        const NoDescriptors none;
        EXPECT_EQ(brd.send(frame), 0); // as bytes to the one, not as a file to the other
        loop.run_ready();
    }
    EXPECT_EQ(rcv.messages.size(), 2u);
    EXPECT_EQ(brd.errors, (std::vector<std::pair<int, int>>{{EMFILE, EMFILE}}));
    slow.run_ready();
    EXPECT_EQ(lagging.messages.size(), 1u);
}

TEST_F(ShbfLimits, MessageThatCannotBeTakenIsLostAlone)
{
    FakeClock clock;
    LogCapture log;
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path);
    ASSERT_TRUE(meet(loop, rcv));
    const std::string large(200000, 'x');
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(brd.send(large), 0);
    EXPECT_EQ(brd.send("small"), 0);
    {
        const NoDescriptors none;
        loop.run_ready();
    }
    EXPECT_EQ(rcv.messages, std::vector<std::string>{"small"});
    EXPECT_EQ(log.texts(NARO_LOG_WARNING), std::vector<std::string>{line_of("a message is lost", EMFILE)});
    EXPECT_EQ(rcv.closed, 0);
    // All four have their receipts: there is room for 64 again.
    for (int i = 0; i < 64; i++)
        EXPECT_EQ(brd.send("x"), 0);
    loop.run_ready();
    EXPECT_EQ(rcv.messages.size(), 65u);

    for (int i = 0; i < 2; i++)
        EXPECT_EQ(rcv.send(large), 0);
    EXPECT_EQ(rcv.send("small"), 0);
    {
        const NoDescriptors none;
        loop.run_ready();
    }
    EXPECT_EQ(brd.messages, std::vector<std::string>{"small"});
    EXPECT_EQ(brd.errors, (std::vector<std::pair<int, int>>{{EMFILE, EMFILE}}));
    EXPECT_TRUE(log.has(NARO_LOG_WARNING, line_of("a receiver's message is lost", EMFILE)));
    EXPECT_EQ(brd.receivers(), 1);
}

TEST_F(ShbfLimits, ReceiverWithoutADescriptorTriesAgain)
{
    FakeClock clock;
    LogCapture log;
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path, false);
    {
        const NoDescriptors none;
        ASSERT_EQ(shbfev_rcv_start(rcv.handle), 0);
        clock.advance_ms(500);
        EXPECT_EQ(log.texts(NARO_LOG_WARNING), std::vector<std::string>{line_of("no connection", EMFILE)});
    }
    clock.advance_ms(50);
    EXPECT_TRUE(meet(loop, rcv));
}

// ---- Ends inside the error callback -----------------------------------------------------------------------

void *ending;
int endings;
int end_it(void *, int)
{
    endings++;
    shbfev_brd_destroy(ending);
    return 0;
}

TEST_F(ShbfEnd, BroadcasterMayBeDestroyedInItsErrorCallback)
{
    const std::set<int> before = [] {
        (void)naro_root_fd();
        return open_descriptors();
    }();
    for (int cause = 0; cause < 5; cause++) {
        Loop loop;
        endings = 0;
        ending = shbfev_brd_create(path);
        ASSERT_EQ(shbfev_brd_register(ending, SHBFEV_BRD_ERROR, end_it, nullptr), 0);
        ASSERT_EQ(shbfev_brd_start(loop.ev, ending), 0);
        RawReceiver raw(path);
        RawReceiver next(path);
        if (cause > 1) {
            ASSERT_TRUE(raw.greeted(loop) && next.greeted(loop));
        }
        std::unique_ptr<NoDescriptors> none;
        if (cause == 0) // accepting
            none = std::make_unique<NoDescriptors>(0);
        if (cause == 1) // serving
            none = std::make_unique<NoDescriptors>(1);
        if (cause == 2) // garbage
            send_raw(raw.fd, "garbage!");
        if (cause == 3) { // a lost message
            send_raw(raw.fd, head(SHBF_FILE, 4), {File(memory_file(4, good_seals))});
            none = std::make_unique<NoDescriptors>(0);
        }
        if (cause == 4) { // one that cannot be sent
            none = std::make_unique<NoDescriptors>(0);
            const std::string large(200000, 'x');
            EXPECT_EQ(shbfev_brd_broadcast_message(ending, large.data(), large.size()), -EMFILE);
        }
        ASSERT_TRUE(loop.run_until([&] { return endings > 0; })) << cause;
        loop.run_ready();
        EXPECT_EQ(endings, 1);
        EXPECT_TRUE(next.cut_off());
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(mapped_memory_files(), 0u);
}

// Nothing of either end stays on the loop, whatever it was about to do.
TEST_F(ShbfEnd, NoWatcherIsLeftBehind)
{
    LogCapture log;
    Loop loop, slow;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver lagging(slow, path), searching(loop, "/run/nobody");
    ASSERT_TRUE(meet(loop, lagging, &slow));
    for (int i = 0; i < 65; i++)
        EXPECT_EQ(brd.send("x"), 0); // the loss is to be reported
    RawReceiver raw(path);
    {
        const NoDescriptors none; // and the door is closed for a while
        ASSERT_TRUE(loop.run_until([&] { return !brd.errors.empty(); }));
    }
    loop.stop_ticking();
    EXPECT_NE(ev_run(loop.ev, EVRUN_NOWAIT), 0); // some are active,
    brd.destroy();
    searching.destroy();
    EXPECT_EQ(ev_run(loop.ev, EVRUN_NOWAIT), 0); // and now none
}

TEST_F(ShbfEnd, ReceiverThatComesAndGoesAtOnceIsNoError)
{
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    for (int i = 0; i < 40; i++)
        RawReceiver raw(path);
    RawReceiver stays(path);
    ASSERT_TRUE(stays.greeted(loop));
    ASSERT_TRUE(loop.run_until([&] { return brd.receivers() == 1; }));
    EXPECT_TRUE(brd.errors.empty());
}

} // namespace
