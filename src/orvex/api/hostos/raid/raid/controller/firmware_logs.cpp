// Firmware update and activation, controller logs, command pass-through.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_firmware_logs_ops(OpList& ops) { (void)ops; }

}  // namespace raid
