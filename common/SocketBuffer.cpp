#include "common/SocketBuffer.h"

#include <sys/socket.h>

namespace GenICam {
namespace Client {

void GrowReceiveBuffer(int fd, int bytes)
{
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes)) != 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
    }
}

} // namespace Client
} // namespace GenICam
