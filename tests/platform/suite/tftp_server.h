// A TFTP server in the test's own process, for what a well-behaved server
// would not do.
#ifndef TESTS_PLATFORM_TFTP_SERVER_H
#define TESTS_PLATFORM_TFTP_SERVER_H

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

class TftpServer {
  public:
    enum class Manner {
        plain,  // knows no options: blocks of 512 octets
        silent, // never answers
        stops,  // plain, falls silent after `blocks` blocks
        error,  // answers with error `code`
    };

    // Listens on a loopback address, on a port of its own.
    TftpServer(Manner manner, const char *address = "127.0.0.1");
    ~TftpServer();

    int port() const {
        return port_;
    }

    unsigned blocks = 3;
    uint16_t code = 0;
    std::string content; // what it gives, and what it was given
    std::string name;    // file name of the last request
    std::string mode;    // and its mode

  private:
    void run();
    void serve(const std::string &request);
    void give(int socket);
    void take(int socket);
    bool answered(int socket, uint16_t opcode, uint16_t block,
                  std::string &packet);

    Manner manner_;
    int socket_ = -1;
    int port_ = 0;
    int family_ = 0;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

#endif
