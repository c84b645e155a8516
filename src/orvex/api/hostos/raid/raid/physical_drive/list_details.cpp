// Physical drive list and details.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

void add_pd_list_details_ops(OpList& ops) { (void)ops; }

}  // namespace raid
