// Physical drive erase and sanitize.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_pd_erase_sanitize_ops(OpList& ops) { (void)ops; }

}  // namespace raid
