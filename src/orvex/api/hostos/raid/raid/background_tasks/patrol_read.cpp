// Patrol read.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_patrol_read_ops(OpList& ops) { (void)ops; }

}  // namespace raid
