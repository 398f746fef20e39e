/* Preloaded into the tool by the bench (inside labs only) to emulate a larger net.core.rmem_default,
 * which this kernel does not let a network namespace change: every IPv4 UDP socket the process
 * opens starts with the receive buffer named in AIC_BENCH_RMEM (bytes), as that sysctl would give. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdlib.h>
#include <sys/socket.h>

int socket(int domain, int type, int protocol)
{
    static int (*real_socket)(int, int, int);
    if (!real_socket) {
        real_socket = (int (*)(int, int, int))dlsym(RTLD_NEXT, "socket");
    }
    int fd = real_socket(domain, type, protocol);
    const char* bytes = getenv("AIC_BENCH_RMEM");
    if (fd >= 0 && bytes && domain == AF_INET && (type & 0xff) == SOCK_DGRAM) {
        int half = atoi(bytes) / 2; /* the kernel doubles the value it is given */
        setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &half, sizeof half);
    }
    return fd;
}
