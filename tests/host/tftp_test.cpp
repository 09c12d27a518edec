#include "platform/tftp.h"

#include <cerrno>
#include <csignal>
#include <fstream>
#include <sstream>
#include <string>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "host/base/clock.h"
#include "host/base/spawn.h"
#include "host/history/moved.h"
#include "host/tftp/conversation.h"
#include "tests/host/support.h"
#include "tests/platform/suite/tftp_server.h"

namespace {

// What fsync fails with; 0 if it does its work.
int refused_by_fsync = 0;

} // namespace

// In the place of the C library's.
extern "C" int fsync(int fd) {
    if (refused_by_fsync == 0)
        return static_cast<int>(syscall(SYS_fsync, fd));
    errno = refused_by_fsync;
    return -1;
}

namespace {

using Manner = TftpServer::Manner;

// What the client asks for on a small path, and here.
constexpr size_t block = xfhost::tftp::safe_block;
constexpr size_t local_block = 65464;
constexpr size_t mebibyte = 1 << 20;

std::string content_of(size_t size) {
    std::string data(size, 0);
    uint32_t state = 12345;
    for (char &c : data) {
        state = state * 1664525 + 1013904223;
        c = static_cast<char>(state >> 24);
    }
    return data;
}

double now() {
    return static_cast<double>(xfhost::monotonic_ns()) / 1e9;
}

// Whether somebody listens on a UDP port. Binding it to find out would keep a
// server that is just starting from it.
bool listens(int port) {
    char end[8];
    snprintf(end, sizeof end, ":%04X", static_cast<unsigned>(port));
    std::ifstream sockets("/proc/net/udp");
    std::string line, number, local;
    while (std::getline(sockets, line)) {
        std::istringstream words(line);
        if (words >> number >> local && local.ends_with(end))
            return true;
    }
    return false;
}

// One that nobody listens on, below those that the system gives to clients;
// each process begins at another.
int free_port() {
    int port = 19000 + getpid() % 990;
    while (listens(port))
        port++;
    return port;
}

class Tftp : public testing::Test {
  protected:
    void SetUp() override {
        local = support::directory() + "/local.bin";
        unlink(local.c_str());
        setenv(xfhost::report_variable, report.c_str(), 1);
        ASSERT_EQ(tftp_timeout_set(20), 0);
    }
    void TearDown() override {
        unsetenv(xfhost::report_variable);
    }
    // What was told since put() or get() began, which has to be a failure.
    std::string reason() {
        const xfhost::Report told = xfhost::read_report(report);
        EXPECT_EQ(told.sha256, "");
        EXPECT_NE(told.advice, "");
        return told.reason.substr(told.reason.find("(TFTP): ") + 8);
    }
    int put(const std::string &data, const char *remote) {
        support::write_file(local, data);
        EXPECT_TRUE(xfhost::begin_report(report));
        return tftp_put2(local.c_str(), remote, 0);
    }
    int get(const char *remote) {
        unlink(local.c_str());
        EXPECT_TRUE(xfhost::begin_report(report));
        return tftp_get2(remote, local.c_str(), 0);
    }
    // Neither the file nor a part of it.
    void expect_nothing_left() {
        EXPECT_FALSE(support::exists(local));
        EXPECT_FALSE(support::exists(support::directory() + "/.transfer-" +
                                     std::to_string(getpid()) + ".part"));
    }
    std::string local;
    const std::string report = support::directory() + "/reports/tftp.report";
};

// A real server on a loopback address and a port of its own.
class TftpDaemon : public Tftp {
  protected:
    void SetUp() override {
        Tftp::SetUp();
        if (geteuid() != 0)
            GTEST_SKIP() << "in.tftpd changes its root: only root can start it";
        if (access("/usr/sbin/in.tftpd", X_OK) != 0)
            GTEST_SKIP() << "in.tftpd is not installed";
        files = support::directory() + "/tftpd";
        mkdir(files.c_str(), 0755);
        int port = free_port();
        start("127.0.0.2:" + std::to_string(port));
        for (int i = 0; i < 500 && !listens(port); i++)
            usleep(10000);
        ASSERT_TRUE(listens(port)) << "in.tftpd did not start";
        ASSERT_EQ(tftp_connect("127.0.0.2", port), 0);
    }
    void TearDown() override {
        Tftp::TearDown();
        if (server <= 0)
            return;
        kill(server, SIGTERM);
        waitpid(server, nullptr, 0);
    }
    void start(const std::string &address) {
        xfhost::SpawnRequest request;
        request.path = "/usr/sbin/in.tftpd";
        request.arguments = {"-L",   "-c", "-s",    "-u",
                             "root", "-a", address, files};
        ASSERT_EQ(xfhost::spawn_program(request, server), 0);
    }
    std::string files;
    pid_t server = 0;
};

TEST_F(TftpDaemon, EverySizeArrivesInBothDirections) {
    for (size_t size :
         {size_t{0}, size_t{1}, size_t{511}, size_t{512}, size_t{513},
          block - 1, block, block + 1, 10 * block, local_block - 1, local_block,
          local_block + 1, 32 * mebibyte}) {
        std::string data = content_of(size);
        std::string name = "size-" + std::to_string(size);
        ASSERT_EQ(put(data, name.c_str()), 0) << size;
        ASSERT_TRUE(support::read_file(files + "/" + name) == data) << size;
        const std::string digest = xfhost::moved_report(data).sha256;
        EXPECT_EQ(xfhost::read_report(report).sha256, digest) << size;
        ASSERT_EQ(get(name.c_str()), 0) << size;
        ASSERT_TRUE(support::read_file(local) == data) << size;
        EXPECT_EQ(xfhost::read_report(report).sha256, digest) << size;
        EXPECT_EQ(xfhost::read_report(report).octets, size);
        EXPECT_EQ(xfhost::read_report(report).reason, "");
    }
    EXPECT_EQ(support::mode_of(local), 0600u);
}

TEST_F(TftpDaemon, AMissingFile) {
    EXPECT_EQ(get("missing"), -1);
    EXPECT_EQ(reason(), "the server said error 1: \"File not found\"");
    expect_nothing_left();
}

TEST_F(TftpDaemon, AccessViolation) {
    support::write_file(files + "/secret", "x");
    chmod((files + "/secret").c_str(), 0600);
    EXPECT_EQ(get("secret"), -2);
    expect_nothing_left();
}

TEST_F(TftpDaemon, NamesArriveAsTheyAre) {
    for (const char *name : {"/slash", "with blank", "100%", "q?x", "h#h",
                             "x;mode=netascii", "a&b=c+d", "[1]", "~"}) {
        ASSERT_EQ(put(name, name), 0) << name;
        std::string path = files + "/" + (name[0] == '/' ? name + 1 : name);
        EXPECT_EQ(support::read_file(path), name);
    }
}

class TftpTest : public Tftp {
  protected:
    void connect(TftpServer &server, const char *address = "127.0.0.1") {
        ASSERT_EQ(tftp_connect(address, server.port()), 0);
    }
};

TEST_F(TftpTest, AServerWithoutOptions) {
    TftpServer server(Manner::plain);
    connect(server);
    for (size_t size :
         {size_t{0}, size_t{1}, size_t{512}, size_t{1024}, size_t{1500}}) {
        std::string data = content_of(size);
        ASSERT_EQ(put(data, "x"), 0) << size;
        EXPECT_TRUE(server.content == data) << size;
        ASSERT_EQ(get("x"), 0) << size;
        EXPECT_TRUE(support::read_file(local) == data) << size;
    }
    EXPECT_EQ(server.mode, "octet");
}

// More than 65535 blocks of 512 octets: the block number starts again at 0.
TEST_F(TftpTest, TheBlockNumberWraps) {
    TftpServer server(Manner::plain);
    connect(server);
    std::string data = content_of(32 * mebibyte + 1000);
    ASSERT_EQ(put(data, "x"), 0);
    EXPECT_TRUE(server.content == data);
    ASSERT_EQ(get("x"), 0);
    EXPECT_TRUE(support::read_file(local) == data);
}

TEST_F(TftpTest, NamesOnTheWire) {
    TftpServer server(Manner::plain);
    connect(server);
    for (const char *name :
         {"/tftpboot/a", "//a", "../up", "..", ".", "a/./b/../c", " a ", "%41",
          "?", "#", ";mode=netascii", "a\\b", "\xc3\xbc", "a\x01"}) {
        EXPECT_EQ(get(name), 0) << name;
        EXPECT_EQ(server.name, name);
        EXPECT_EQ(server.mode, "octet");
    }
}

TEST_F(TftpTest, Ipv6) {
    int probe = socket(AF_INET6, SOCK_DGRAM, 0);
    struct sockaddr_in6 loopback = {};
    loopback.sin6_family = AF_INET6;
    loopback.sin6_addr = in6addr_loopback;
    bool there = bind(probe, reinterpret_cast<struct sockaddr *>(&loopback),
                      sizeof loopback) == 0;
    close(probe);
    if (!there)
        GTEST_SKIP() << "no IPv6 loopback address";
    TftpServer server(Manner::plain, "::1");
    connect(server, "::1");
    ASSERT_EQ(put("over v6", "x"), 0);
    EXPECT_EQ(server.content, "over v6");
}

TEST_F(TftpTest, AServerThatNeverAnswers) {
    TftpServer server(Manner::silent);
    connect(server);
    double start = now();
    EXPECT_EQ(get("x"), -210);
    EXPECT_EQ(reason(), "the answer to the request did not come within 2 "
                        "seconds");
    EXPECT_EQ(put("data", "x"), -210);
    EXPECT_LT(now() - start, 15); // 2 s a transfer are configured
    unlink(local.c_str());
    expect_nothing_left();
}

TEST_F(TftpTest, AServerThatStopsInTheMiddle) {
    TftpServer server(Manner::stops);
    server.content = content_of(100000);
    connect(server);
    double start = now();
    EXPECT_EQ(get("x"), -210);
    EXPECT_TRUE(reason().starts_with("block ")) << reason();
    expect_nothing_left();
    EXPECT_EQ(put(content_of(100000), "x"), -210);
    EXPECT_TRUE(reason().starts_with("the acknowledgement of block "))
        << reason();
    EXPECT_GT(xfhost::read_report(report).octets, 0u);
    EXPECT_LT(now() - start, 20);
}

TEST_F(TftpTest, ErrorsOfTheProtocol) {
    TftpServer server(Manner::error);
    connect(server);
    for (int code : {1, 2, 3, 4, 5, 6, 7}) {
        server.code = static_cast<uint16_t>(code);
        EXPECT_EQ(get("x"), -code);
        EXPECT_EQ(reason(), "the server said error " + std::to_string(code) +
                                ": \"refused\"");
        EXPECT_EQ(put("x", "x"), -code);
    }
    server.code = 0; // "not defined": no code of its own
    EXPECT_LT(get("x"), 0);
}

TEST_F(TftpTest, AFileThatWasThereIsReplacedOnlyBySuccess) {
    TftpServer server(Manner::plain);
    connect(server);
    server.content = "new";
    support::write_file(local, "old");
    ASSERT_EQ(tftp_get2("x", local.c_str(), 0), 0);
    EXPECT_EQ(support::read_file(local), "new");
}

TEST_F(TftpTest, ALocalLinkLeadsNowhere) {
    TftpServer server(Manner::plain);
    connect(server);
    server.content = "from the server";
    std::string victim = support::directory() + "/tftp-victim";
    support::write_file(victim, "precious");
    unlink(local.c_str());
    ASSERT_EQ(symlink(victim.c_str(), local.c_str()), 0);
    EXPECT_EQ(tftp_put2(local.c_str(), "x", 0), -(100 + ELOOP));
    EXPECT_EQ(tftp_get2("x", local.c_str(), 0), 0);
    EXPECT_EQ(support::read_file(victim), "precious");
    EXPECT_EQ(support::read_file(local), "from the server");
}

TEST_F(TftpTest, LocalErrors) {
    TftpServer server(Manner::plain);
    connect(server);
    EXPECT_TRUE(xfhost::begin_report(report));
    EXPECT_EQ(tftp_put2("/no/such/file", "x", 0), -(100 + ENOENT));
    EXPECT_EQ(reason(), "the local file cannot be read: No such file or "
                        "directory");
    EXPECT_EQ(tftp_get2("x", "/no/such/directory/file", 0), -(100 + ENOENT));
    EXPECT_EQ(tftp_put2("/tmp", "x", 0), -(100 + EINVAL));
    EXPECT_EQ(tftp_get2("", local.c_str(), 0), -(100 + EINVAL));
}

TEST_F(TftpTest, ADirectoryInTheFilesPlace) {
    TftpServer server(Manner::plain);
    connect(server);
    server.content = "data";
    std::string dir = support::directory() + "/readonly";
    mkdir(dir.c_str(), 0700);
    // A directory in the file's place cannot be replaced by it.
    mkdir((dir + "/x").c_str(), 0700);
    EXPECT_EQ(tftp_get2("x", (dir + "/x").c_str(), 0), -(100 + EISDIR));
    EXPECT_FALSE(support::exists(dir + "/.transfer-" +
                                 std::to_string(getpid()) + ".part"));
}

// Some file systems tell only then that there was no room.
TEST_F(TftpTest, AFileThatCannotBeStored) {
    TftpServer server(Manner::plain);
    connect(server);
    server.content = content_of(5000);
    refused_by_fsync = ENOSPC;
    EXPECT_EQ(get("x"), -3);
    EXPECT_EQ(reason(), "the file could not be kept: No space left on device");
    refused_by_fsync = EIO;
    EXPECT_EQ(get("x"), -(100 + EIO));
    refused_by_fsync = 0;
    expect_nothing_left();
    EXPECT_EQ(get("x"), 0);
}

// What the process may not write is treated like a full disk.
TEST_F(TftpTest, AFileAboveTheLimitOfTheProcess) {
    TftpServer server(Manner::plain);
    connect(server);
    server.content = content_of(5000);
    struct rlimit before, small;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    small = before;
    small.rlim_cur = 4096;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    int result = get("x");
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(result, -3);
    EXPECT_EQ(reason(), "the local file: no space for it");
    expect_nothing_left();
    EXPECT_EQ(get("x"), 0);
}

TEST_F(TftpTest, LongestLocalName) {
    TftpServer server(Manner::plain);
    connect(server);
    for (size_t length : {103, 104, 128, 255}) {
        local = support::directory() + "/" + std::string(length, 'n');
        server.content = content_of(length);
        EXPECT_EQ(get(std::string(length, 'r').c_str()), 0) << length;
        EXPECT_EQ(server.name, std::string(length, 'r'));
        EXPECT_EQ(support::read_file(local), content_of(length)) << length;
        EXPECT_EQ(put(content_of(600), "x"), 0) << length;
        EXPECT_EQ(server.content, content_of(600)) << length;
        unlink(local.c_str());
    }
}

// ---- What can only be seen in the conversation itself
// ------------------------

class Memory : public xfhost::tftp::LocalFile {
  public:
    explicit Memory(std::string content = {}) : octets(std::move(content)) {}
    int expect(uint64_t) override {
        return 0;
    }
    int append(std::string_view more) override {
        octets += more;
        return 0;
    }
    int next(size_t length, std::string &packet) override {
        packet += octets.substr(0, length);
        octets.erase(0, length);
        return 0;
    }
    int restart() override {
        return 0;
    }
    std::string octets;
};

std::string packet(uint16_t opcode, uint16_t number, std::string rest = {}) {
    return {std::string{0, static_cast<char>(opcode),
                        static_cast<char>(number >> 8),
                        static_cast<char>(number & 0xff)} +
            rest};
}

TEST(TftpConversation, TheFirstValidAnswerSettlesThePort) {
    Memory file;
    xfhost::tftp::Conversation talk({false, "x"}, file);
    for (const std::string &other :
         {packet(4, 0), packet(3, 2), packet(3, 0), packet(6, 0), packet(1, 1),
          std::string("\0\3\0", 3), packet(3, 1, std::string(513, 'x'))}) {
        EXPECT_FALSE(talk.take(1000, other));
        EXPECT_EQ(talk.port(), 0);
    }
    EXPECT_TRUE(talk.take(2000, packet(3, 1, std::string(512, 'a'))));
    EXPECT_EQ(talk.port(), 2000);
    EXPECT_FALSE(talk.take(1000, packet(3, 2, "forged")));
    EXPECT_FALSE(talk.take(1000, packet(5, 1)));
    EXPECT_TRUE(talk.take(2000, packet(3, 2, "b")));
    EXPECT_TRUE(talk.ended());
    EXPECT_EQ(talk.result(), 0);
    EXPECT_EQ(file.octets, std::string(512, 'a') + "b");
}

// It would be taken for the file's end by the server.
TEST(TftpConversation, AFileThatHasBecomeShorterIsAFailure) {
    Memory file("short");
    xfhost::tftp::Conversation talk({true, "x", 600}, file);
    EXPECT_TRUE(talk.take(2000, packet(4, 0)));
    EXPECT_TRUE(talk.ended());
    EXPECT_EQ(talk.result(), -(100 + EIO));
    EXPECT_EQ(talk.packet().substr(0, 2), packet(5, 0).substr(0, 2));
}

TEST(TftpConversation, TheLastBlockHasToBeAcknowledged) {
    Memory file(std::string(512, 'x'));
    xfhost::tftp::Conversation talk({true, "x", 512}, file);
    EXPECT_TRUE(talk.take(2000, packet(4, 0)));
    EXPECT_TRUE(talk.take(2000, packet(4, 1)));
    EXPECT_FALSE(talk.ended());
    EXPECT_EQ(talk.packet(), packet(3, 2));
    EXPECT_FALSE(talk.take(2000, packet(4, 1)));
    EXPECT_FALSE(talk.ended());
    EXPECT_FALSE(talk.take(2000, packet(4, 2))); // nothing is left to say
    EXPECT_TRUE(talk.ended());
    EXPECT_EQ(talk.result(), 0);
}

TEST(TftpConversation, TheBlockFitsThePath) {
    using xfhost::tftp::block_for;
    EXPECT_EQ(block_for(0), block); // not known
    EXPECT_EQ(block_for(68), 512u);
    EXPECT_EQ(block_for(576), 512u);
    EXPECT_EQ(block_for(1280), 1208u);
    EXPECT_EQ(block_for(1500), block);
    EXPECT_EQ(block_for(9000), 8928u);
    EXPECT_EQ(block_for(65534), 65462u);
    EXPECT_EQ(block_for(65535), local_block); // what IPv4 tells of more
    EXPECT_EQ(block_for(65536), local_block);
    EXPECT_EQ(block_for(100000), local_block);
}

std::string option(const std::string &name, size_t value) {
    return name + '\0' + std::to_string(value) + '\0';
}

std::string request(size_t asked) {
    std::string packet = std::string("\0\1x\0octet\0", 10);
    return asked == 0 ? packet
                      : packet + option("blksize", asked) + option("tsize", 0);
}

TEST(TftpConversation, WhoIsNotAnsweredAsksForLess) {
    Memory file;
    xfhost::tftp::Conversation talk({false, "x", 0, 8928}, file);
    EXPECT_EQ(talk.packet(), request(8928));
    talk.ask_for_less();
    EXPECT_EQ(talk.packet(), request(block));
    talk.ask_for_less();
    EXPECT_EQ(talk.packet(), request(0));
    talk.ask_for_less();
    EXPECT_EQ(talk.packet(), request(0));
    // Late, but it was asked for.
    std::string taken = std::string("\0\6", 2) + option("blksize", 8928);
    EXPECT_TRUE(talk.take(2000, taken));
    EXPECT_EQ(talk.block_size(), 8928u);
    EXPECT_EQ(talk.packet(), packet(4, 0));
    talk.ask_for_less(); // no longer
    EXPECT_EQ(talk.packet(), packet(4, 0));
}

TEST(TftpConversation, ALargerBlockThanAskedForIsRefused) {
    Memory file;
    xfhost::tftp::Conversation talk({false, "x", 0, 8928}, file);
    EXPECT_TRUE(
        talk.take(2000, std::string("\0\6", 2) + option("blksize", 8929)));
    EXPECT_EQ(talk.result(), -(100 + EPROTO));
    EXPECT_FALSE(talk.less_may_do());
}

TEST(TftpConversation, ItCanBeStoppedForSmallerBlocks) {
    Memory file;
    xfhost::tftp::Conversation talk({false, "x", 0, 8928}, file);
    talk.take(2000, std::string("\0\6", 2) + option("blksize", 8928));
    talk.stop_for_less();
    EXPECT_TRUE(talk.ended());
    EXPECT_TRUE(talk.less_may_do());
    EXPECT_EQ(talk.packet().substr(0, 4), packet(5, 0)); // the server is told
}

TEST(TftpConversation, OnlyWhoHasAskedForSomethingCanAskForLess) {
    for (size_t asked : {size_t{8928}, block, size_t{0}}) {
        Memory file;
        xfhost::tftp::Conversation talk({false, "x", 0, asked}, file);
        talk.take(2000, packet(5, 8));
        EXPECT_TRUE(talk.ended());
        EXPECT_EQ(talk.less_may_do(), asked != 0);
    }
}

TEST_F(TftpTest, BadServers) {
    EXPECT_EQ(tftp_connect("host.example", -1), -(100 + EINVAL));
    EXPECT_TRUE(xfhost::begin_report(report));
    EXPECT_EQ(tftp_connect("", -1), -(100 + EINVAL));
    EXPECT_NE(xfhost::read_report(report).reason, "");
    EXPECT_EQ(tftp_connect("127.0.0.1", 0), -(100 + EINVAL));
    EXPECT_EQ(tftp_connect("127.0.0.1", 65536), -(100 + EINVAL));
    EXPECT_EQ(tftp_timeout_set(0), -(100 + EINVAL));
}

TEST_F(TftpTest, TextsOfResults) {
    EXPECT_STREQ(tftp_strerror(-1), "file not found");
    EXPECT_STREQ(tftp_strerror(-210), "Connection timed out");
    EXPECT_STREQ(tftp_strerror(-50), "TFTP error 50");
    EXPECT_STREQ(tftp_strerror(0), "success");
}

} // namespace
