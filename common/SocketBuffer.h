#pragma once

namespace GenICam {
namespace Client {

// Asks for `bytes` of receive buffer; without the right to exceed the kernel's cap, as much as the cap allows.
void GrowReceiveBuffer(int fd, int bytes);

} // namespace Client
} // namespace GenICam
