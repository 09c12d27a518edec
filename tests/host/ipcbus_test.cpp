#include "platform/ipcbus.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "host/base/settings.h"
#include "host/ipcbus/queue.h"
#include "tests/host/support.h"

using namespace xfhost;

namespace {

constexpr ipcbus_address service = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_PROCD};
constexpr ipcbus_recv_options at_once = {1, 0};
constexpr ipcbus_recv_options a_second = {1, 1};

double now() {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) +
           static_cast<double>(time.tv_nsec) / 1e9;
}

class Ipcbus : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_GE(ipcbus_bind(IPCBUS_KIND_DATAGRAM, IPCBUS_SAP_PROCD, &server,
                              "server"),
                  0);
        ASSERT_GE(ipcbus_bind(IPCBUS_KIND_REQ_RESP, IPCBUS_SAP_ANY, &client,
                              "client"),
                  0);
    }
    void TearDown() override {
        ipcbus_unbind(client, 0);
        ipcbus_unbind(server, 0);
    }
    ipcbus_message *receive() {
        ipcbus_message *message = nullptr;
        EXPECT_EQ(ipcbus_recv(server, &message, &a_second), 0)
            << strerror(errno);
        return message;
    }
    // Nothing waits at the server.
    void expect_silence() {
        ipcbus_message *message = nullptr;
        EXPECT_EQ(ipcbus_recv(server, &message, &at_once), -1);
        EXPECT_EQ(errno, ETIME);
    }
    std::string socket_path() {
        return settings()->run_directory + "/sap.3";
    }
    // Puts octets into the server's socket past the library.
    void inject(const std::vector<uint8_t> &octets) {
        int directory = open(settings()->run_directory.c_str(), O_PATH);
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        snprintf(address.sun_path, sizeof address.sun_path,
                 "/proc/self/fd/%d/sap.3", directory);
        int socket = ::socket(AF_UNIX, SOCK_DGRAM, 0);
        EXPECT_EQ(sendto(socket, octets.data(), octets.size(), 0,
                         reinterpret_cast<struct sockaddr *>(&address),
                         sizeof address),
                  static_cast<ssize_t>(octets.size()));
        close(socket);
        close(directory);
    }
    ipcbus_handle server = nullptr;
    ipcbus_handle client = nullptr;
};

TEST(IpcbusWire, IsTheseOctets) {
    WireMessage message;
    message.opcode = 10277;
    message.token = 0x01020304;
    message.kind = WireKind::request;
    message.sender = "q.7.1";
    message.payload = {0, 0, 0, 5};
    std::vector<uint8_t> expected = {'X',  'F', 'B', '1', 0,   0,   0x28,
                                     0x25, 1,   2,   3,   4,   0,   0,
                                     0,    1,   'q', '.', '7', '.', '1'};
    expected.resize(48);
    expected.insert(expected.end(), {0, 0, 0, 5});
    EXPECT_EQ(wire_encode(message), expected);
    auto back = wire_decode(expected.data(), expected.size());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->opcode, 10277u);
    EXPECT_EQ(back->token, 0x01020304u);
    EXPECT_EQ(back->kind, WireKind::request);
    EXPECT_EQ(back->sender, "q.7.1");
    EXPECT_EQ(back->payload, message.payload);
}

TEST(IpcbusWire, EveryShorterHeaderIsRefused) {
    WireMessage message;
    message.sender = "q.7.1";
    std::vector<uint8_t> whole = wire_encode(message);
    for (size_t length = 0; length < whole.size(); length++) {
        std::vector<uint8_t> cut(whole.begin(),
                                 whole.begin() + static_cast<long>(length));
        EXPECT_FALSE(wire_decode(cut.data(), cut.size())) << length;
    }
    EXPECT_TRUE(wire_decode(whole.data(), whole.size()));
}

TEST(IpcbusWire, ForeignContentIsRefused) {
    WireMessage message;
    message.sender = "q.7.1";
    const std::vector<uint8_t> good = wire_encode(message);
    auto refused = [&](size_t offset, uint8_t value) {
        std::vector<uint8_t> bad = good;
        bad[offset] = value;
        return !wire_decode(bad.data(), bad.size());
    };
    EXPECT_TRUE(refused(0, 'Y'));  // magic
    EXPECT_TRUE(refused(15, 3));   // kind
    EXPECT_TRUE(refused(15, 1));   // a request without a token
    EXPECT_TRUE(refused(11, 1));   // a one-way message with one
    EXPECT_TRUE(refused(17, '/')); // a path as name
    EXPECT_TRUE(refused(16, '.'));
    EXPECT_TRUE(refused(16, 0)); // no name
    std::vector<uint8_t> long_name = good;
    std::fill(long_name.begin() + 16, long_name.begin() + 48, uint8_t{'a'});
    EXPECT_FALSE(wire_decode(long_name.data(), long_name.size()));
    std::vector<uint8_t> large = good;
    large.resize(wire_header_size + wire_largest_payload + 1);
    EXPECT_FALSE(wire_decode(large.data(), large.size()));
}

TEST_F(Ipcbus, CarriesOpcodeAndPayload) {
    const uint8_t payload[] = {0, 0, 0, 5};
    ASSERT_EQ(ipcbus_send(client, &service, 10277, payload, 4, 0, 0, nullptr),
              0);
    ipcbus_message *message = receive();
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(ipcbus_opc_get(message), 10277u);
    EXPECT_EQ(memcmp(ipcbus_payload_get(message), payload, 4), 0);
    EXPECT_EQ(ipcbus_rr_token_get(message), 0u);
    EXPECT_EQ(message->sender_pid, getpid());
    ipcbus_drop(server, message);
}

TEST_F(Ipcbus, AShortPayloadIsFollowedByZeroes) {
    ASSERT_EQ(ipcbus_send(client, &service, 1, "\xff", 1, 0, 0, nullptr), 0);
    ipcbus_message *message = receive();
    ASSERT_NE(message, nullptr);
    uint8_t expected[16] = {0xff};
    EXPECT_EQ(memcmp(ipcbus_payload_get(message), expected, 16), 0);
    ipcbus_drop(server, message);
}

TEST_F(Ipcbus, NoPayloadIsNull) {
    ASSERT_EQ(ipcbus_send(client, &service, 1, nullptr, 0, 0, 0, nullptr), 0);
    ipcbus_message *message = receive();
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(ipcbus_payload_get(message), nullptr);
    ipcbus_drop(server, message);
}

TEST_F(Ipcbus, TheResponseCarriesTheRequestsToken) {
    ipcbus_message *first = nullptr, *second = nullptr;
    ASSERT_EQ(
        ipcbus_send(ipcbus_response_q, &service, 1282, "x", 1, 0, 0, &first),
        0);
    ASSERT_EQ(
        ipcbus_send(ipcbus_response_q, &service, 1282, "x", 1, 0, 0, &second),
        0);
    EXPECT_NE(ipcbus_rr_token_get(first), 0u);
    EXPECT_NE(ipcbus_rr_token_get(first), ipcbus_rr_token_get(second));

    ipcbus_message *request = receive();
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(ipcbus_rr_token_get(request), ipcbus_rr_token_get(first));
    const uint8_t accepted[] = {0x40, 0x1E, 0, 3};
    ASSERT_EQ(ipcbus_respond(server, request, accepted, 4), 0);
    ipcbus_drop(server, request);
    ipcbus_drop(server, receive());

    ipcbus_message *response = nullptr;
    ASSERT_EQ(ipcbus_recv(ipcbus_response_q, &response, &a_second), 0);
    EXPECT_EQ(ipcbus_opc_get(response), 1282u);
    EXPECT_EQ(ipcbus_rr_token_get(response), ipcbus_rr_token_get(first));
    EXPECT_EQ(memcmp(ipcbus_payload_get(response), accepted, 4), 0);
    ipcbus_drop(ipcbus_response_q, response);
    ipcbus_drop(ipcbus_response_q, first);
    ipcbus_drop(ipcbus_response_q, second);
}

TEST_F(Ipcbus, NobodyThereIsAnError) {
    const ipcbus_address nobody = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_PROCD_RPC};
    ipcbus_message *request = reinterpret_cast<ipcbus_message *>(1);
    EXPECT_EQ(ipcbus_send(client, &nobody, 1, nullptr, 0, 0, 0, &request), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(request, nullptr);
    const ipcbus_address elsewhere = {0xFE000001, IPCBUS_SAP_PROCD};
    EXPECT_EQ(ipcbus_send(client, &elsewhere, 1, nullptr, 0, 0, 0, nullptr),
              -1);
    EXPECT_EQ(errno, EHOSTUNREACH);
    EXPECT_EQ(ipcbus_send(nullptr, &service, 1, nullptr, 0, 0, 0, nullptr), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(Ipcbus, AFullQueueIsAnErrorAndDoesNotBlock) {
    int sent = 0;
    while (sent < 100000 &&
           ipcbus_send(client, &service, 1, "x", 1, 0, 0, nullptr) == 0)
        sent++;
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GT(sent, 0);
    EXPECT_LT(sent, 100000);
}

// A name that does not fit a socket address is refused before any system call.
TEST_F(Ipcbus, ANameThatIsTooLongIsAnErrorWithItsNumber) {
    ipcbus_message request;
    request.wire.sender = std::string(200, 'q');
    errno = 0;
    EXPECT_EQ(ipcbus_respond(client, &request, "x", 1), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(Ipcbus, SizesAreBounded) {
    std::vector<uint8_t> payload(wire_largest_payload + 1, 7);
    auto length = static_cast<uint32_t>(payload.size());
    EXPECT_EQ(
        ipcbus_send(client, &service, 1, payload.data(), length, 0, 0, nullptr),
        -1);
    EXPECT_EQ(errno, EMSGSIZE);
    ASSERT_EQ(ipcbus_send(client, &service, 1, payload.data(), length - 1, 0, 0,
                          nullptr),
              0);
    ipcbus_message *message = receive();
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->wire.payload.size(), wire_largest_payload);
    ipcbus_drop(server, message);
}

TEST_F(Ipcbus, MalformedMessagesAreDropped) {
    inject({});
    inject({1, 2, 3});
    inject(std::vector<uint8_t>(wire_header_size, 0));
    inject(std::vector<uint8_t>(20000, 'X'));
    ASSERT_EQ(ipcbus_send(client, &service, 42, nullptr, 0, 0, 0, nullptr), 0);
    ipcbus_message *message = receive();
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(ipcbus_opc_get(message), 42u);
    ipcbus_drop(server, message);
    expect_silence();
}

TEST_F(Ipcbus, OtherUsersAreNotHeard) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can send as another user";
    WireMessage message;
    message.sender = "q.7.1";
    std::vector<uint8_t> octets = wire_encode(message);
    // A door that stands open: the credentials alone have to do.
    int socket = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    int directory = open(settings()->run_directory.c_str(), O_PATH);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path,
             "/proc/self/fd/%d/sap.3", directory);
    ASSERT_EQ(connect(socket, reinterpret_cast<struct sockaddr *>(&address),
                      sizeof address),
              0);
    pid_t child = fork();
    if (child == 0) {
        if (setresuid(12345, 12345, 12345) != 0)
            _exit(2);
        _exit(send(socket, octets.data(), octets.size(), 0) < 0 ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    expect_silence();
    close(socket);
    close(directory);
}

TEST_F(Ipcbus, AnAccessPointHasOneHolder) {
    ipcbus_handle second = nullptr;
    EXPECT_LT(ipcbus_bind(IPCBUS_KIND_DATAGRAM, IPCBUS_SAP_PROCD, &second, "x"),
              0);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(second, nullptr);
}

TEST_F(Ipcbus, TheSocketOfADeadHolderIsTakenOver) {
    ipcbus_unbind(server, 0);
    server = nullptr;
    pid_t child = fork();
    if (child == 0) {
        ipcbus_handle handle = nullptr;
        _exit(ipcbus_bind(IPCBUS_KIND_DATAGRAM, IPCBUS_SAP_PROCD, &handle,
                          "x") < 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    EXPECT_TRUE(support::exists(socket_path()));
    ASSERT_EQ(ipcbus_bind(IPCBUS_KIND_DATAGRAM, IPCBUS_SAP_PROCD, &server, "x"),
              0);
    ASSERT_EQ(ipcbus_send(client, &service, 5, nullptr, 0, 0, 0, nullptr), 0);
    ipcbus_drop(server, receive());
}

TEST_F(Ipcbus, UnbindRemovesTheSocket) {
    std::string path = settings()->run_directory + "/" + client->name;
    EXPECT_TRUE(support::exists(path));
    EXPECT_EQ(support::mode_of(path), 0600u);
    EXPECT_EQ(ipcbus_unbind(client, 0), 0);
    client = nullptr;
    EXPECT_FALSE(support::exists(path));
    EXPECT_EQ(ipcbus_unbind(nullptr, 0), -1);
    EXPECT_EQ(ipcbus_unbind(ipcbus_response_q, 0), -1);
}

TEST_F(Ipcbus, AChildHasAResponseQueueOfItsOwn) {
    ipcbus_message *request = nullptr;
    ASSERT_EQ(
        ipcbus_send(ipcbus_response_q, &service, 1, nullptr, 0, 0, 0, &request),
        0);
    std::string name = ipcbus_response_q->name;
    pid_t child = fork();
    if (child == 0) {
        ipcbus_message *own = nullptr;
        bool sent = ipcbus_send(ipcbus_response_q, &service, 2, nullptr, 0, 0,
                                0, &own) == 0;
        bool other = ipcbus_response_q->name != name;
        _exit(sent && other ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    ipcbus_sweep();
    ipcbus_drop(server, receive());
    ipcbus_message *message = receive();
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->sender_pid, child);
    EXPECT_NE(ipcbus_rr_token_get(message), ipcbus_rr_token_get(request));
    ipcbus_drop(server, message);
    ipcbus_drop(ipcbus_response_q, request);
}

TEST_F(Ipcbus, SweepRemovesWhatAProcessLeft) {
    pid_t child = fork();
    if (child == 0) {
        ipcbus_handle handle = nullptr;
        ipcbus_bind(IPCBUS_KIND_DATAGRAM, IPCBUS_SAP_ANY, &handle, "x");
        _exit(0);
    }
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    std::string left =
        settings()->run_directory + "/q." + std::to_string(child) + ".";
    auto any_left = [&] {
        for (int i = 1; i < 50; i++)
            if (support::exists(left + std::to_string(i)))
                return true;
        return false;
    };
    EXPECT_TRUE(any_left());
    ipcbus_sweep();
    EXPECT_FALSE(any_left());
    EXPECT_TRUE(ipcbus_reachable(client));
    EXPECT_TRUE(ipcbus_reachable(server));
}

TEST_F(Ipcbus, ASocketThatWasRemovedIsMadeAnew) {
    ASSERT_TRUE(ipcbus_reachable(server));
    ASSERT_EQ(unlink((settings()->run_directory + "/" + server->name).c_str()),
              0);
    EXPECT_FALSE(ipcbus_reachable(server));
    EXPECT_NE(ipcbus_send(client, &service, 1, nullptr, 0, 0, 0, nullptr), 0);
    EXPECT_EQ(errno, ENOENT);
    ASSERT_TRUE(ipcbus_rebind(server));
    EXPECT_TRUE(ipcbus_reachable(server));
    EXPECT_EQ(ipcbus_send(client, &service, 2, nullptr, 0, 0, 0, nullptr), 0);
    ipcbus_message *message = receive();
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(ipcbus_opc_get(message), 2u);
    ipcbus_drop(server, message);
}

TEST_F(Ipcbus, ARequestHasASocketForItsAnswer) {
    ipcbus_message *request = nullptr;
    ASSERT_EQ(
        ipcbus_send(ipcbus_response_q, &service, 1, nullptr, 0, 0, 0, &request),
        0);
    ipcbus_drop(ipcbus_response_q, request);
    ipcbus_drop(server, receive());
    std::string name = ipcbus_response_q->name;
    ASSERT_EQ(unlink((settings()->run_directory + "/" + name).c_str()), 0);
    ASSERT_EQ(
        ipcbus_send(ipcbus_response_q, &service, 2, nullptr, 0, 0, 0, &request),
        0);
    EXPECT_TRUE(ipcbus_reachable(ipcbus_response_q));
    EXPECT_EQ(ipcbus_response_q->name, name);
    ipcbus_drop(ipcbus_response_q, request);
    ipcbus_drop(server, receive());
}

TEST_F(Ipcbus, ATimeoutIsETIME) {
    ipcbus_message *message = nullptr;
    double start = now();
    EXPECT_EQ(ipcbus_recv(server, &message, &a_second), -1);
    EXPECT_EQ(errno, ETIME);
    EXPECT_EQ(message, nullptr);
    EXPECT_GE(now() - start, 0.95);
    EXPECT_LT(now() - start, 5);
}

void nothing(int) {}

TEST_F(Ipcbus, ASignalIsEINTR) {
    struct sigaction action = {}, old = {};
    action.sa_handler = nothing;
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, &old);
    alarm(1);
    ipcbus_message *message = nullptr;
    const ipcbus_recv_options for_ever = {0, 0};
    EXPECT_EQ(ipcbus_recv(server, &message, &for_ever), -1);
    EXPECT_EQ(errno, EINTR);
    sigaction(SIGALRM, &old, nullptr);
}

TEST(IpcbusBind, BadArguments) {
    ipcbus_handle handle = nullptr;
    EXPECT_EQ(ipcbus_bind(2, IPCBUS_SAP_ANY, &handle, "x"), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ipcbus_bind(1, -2, &handle, "x"), -1);
    EXPECT_EQ(errno, EINVAL);
    ipcbus_drop(nullptr, nullptr);
    EXPECT_EQ(ipcbus_rr_token_get(nullptr), 0u);
}

} // namespace
