// A client's stream on the command socket: the input's first byte says how large the pieces are in which the rest
// arrives. Every request that is cut out of it is done and answered.
#include <algorithm>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <vector>

#include "ipc_request.h"
#include "isp_state.h"

namespace
{

void require(bool condition)
{
    if (!condition)
        abort();
}

void serve(isp_state *isp, ipc_request *request)
{
    uint8_t data[NARO_IPC_MAX_REPLY] = {}, reply[NARO_IPC_MAX_REPLY];
    require(!request->close || request->ret != IPC_RET_OK);
    if (request->ret == IPC_RET_OK) {
        require(request->command && request->command->cmd_no == request->cmd_no);
        request->ret = isp_state_apply(isp, request, data);
    }
    const size_t length = ipc_reply_build(reply, request, data);
    require(length == IPC_REPLY_PLAIN + request->reply_data && length <= NARO_IPC_MAX_REPLY);
    require(ipc_get_word(reply + 8) == request->cmd_no + 1);
    require(isp->mode <= ISP_MODE_NIGHT && isp->pwm_duty_percent <= 100);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    isp_state isp;
    isp_state_init(&isp);
    if (size == 0)
        return 0;
    const size_t piece = static_cast<size_t>(bytes[0]) + 1;
    std::vector<uint8_t> in;
    for (size_t at = 1; at < size; at += piece) {
        in.insert(in.end(), bytes + at, bytes + std::min(size, at + piece));
        for (;;) {
            // Of exactly this size, so that a read beyond it is seen.
            std::vector<uint8_t> exact(in);
            exact.shrink_to_fit();
            ipc_request request;
            const size_t used = ipc_request_parse(exact.data(), exact.size(), &request);
            require(used <= in.size());
            if (used == 0) {
                require(in.size() < IPC_REQUEST_MAX); // what waits for more is bounded
                break;
            }
            serve(&isp, &request);
            if (request.close)
                return 0;
            in.erase(in.begin(), in.begin() + static_cast<ptrdiff_t>(used));
        }
    }
    return 0;
}
