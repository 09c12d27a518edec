#include "scripted/note.h"

using namespace scripted;

extern "C" {

const char *procd_cli_dir_get(ipcbus_handle handle, int which) {
    static std::string place;

    called(__func__, print("%s(%s, %d)", __func__, name_of(handle), which));
    return lasting(place, platform().configuration_directory);
}

int procd_cli_write_ascii_cfg(ipcbus_handle handle, const char *path) {
    called(__func__, print("%s(%s, %s)", __func__, name_of(handle),
                           text_or_null(path).c_str()))
        .strings = {copy_or_empty(path)};
    hook(__func__);
    return platform().write_cfg_results.take();
}

void procd_heartbeat(int state) {
    called(__func__, print("%s(%d)", __func__, state));
}

uint32_t procd_heartbeat_timeout_get(void) {
    asked(__func__, print("%s()", __func__));
    return platform().heartbeat_milliseconds;
}

int rpcq_req_resp(uint32_t code, uint32_t arg1, uint32_t arg2,
                  const void *request, uint32_t request_length,
                  uint32_t service, ipcbus_handle queue, uint32_t limit,
                  void **response) {
    Platform &p = platform();

    p.last_rpc = RpcRequest{code,    arg1,  arg2,    request_length,
                            service, limit, request, queue};
    called(__func__, print("%s(%u, %u, %u, %s, %u, %u, %s, %u)", __func__, code,
                           arg1, arg2, request == nullptr ? "NULL" : "request",
                           request_length, service, name_of(queue), limit));
    hook(__func__);
    *response = nullptr;
    if (no_memory(__func__))
        return -1;
    if (p.rpcq_response.has_value()) {
        const size_t size = std::max<size_t>(8, p.rpcq_response->size());
        *response = allocated_for_module(size);
        memcpy(*response, p.rpcq_response->data(), p.rpcq_response->size());
    }
    return p.rpcq_results.take();
}

int qsh_execute_cfg_file2(const struct qsh_cfg_file_request *request) {
    const std::string octets(reinterpret_cast<const char *>(request),
                             sizeof(*request));
    const bool rest_is_zero =
        std::all_of(std::begin(request->reserved), std::end(request->reserved),
                    [](uint32_t word) { return word == 0; });

    EXPECT_TRUE(rest_is_zero);
    Event &event = called(__func__, print("%s(%s, %s)", __func__,
                                          quote(request->cfg_file).c_str(),
                                          quote(request->out_file).c_str()));
    event.strings = {request->cfg_file, request->out_file};
    event.octets = octets;
    hook(__func__);
    return platform().apply_results.take();
}

int qsh_notify_cfg_update(ipcbus_handle handle, int what, int from, int to) {
    called(__func__, print("%s(%s, %d, %d, %d)", __func__, name_of(handle),
                           what, from, to));
    return 0;
}

} // extern "C"
