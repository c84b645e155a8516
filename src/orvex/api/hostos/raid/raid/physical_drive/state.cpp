// Physical drive state operations.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_pd_state_ops(OpList& ops) { (void)ops; }

}  // namespace raid
