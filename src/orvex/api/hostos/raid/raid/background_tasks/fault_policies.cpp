// Kick-drive and slow-drive policies.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_fault_policies_ops(OpList& ops) { (void)ops; }

}  // namespace raid
