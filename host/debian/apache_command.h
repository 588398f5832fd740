// What Apache's modules need to declare their directives.
#pragma once

#include <httpd.h>
// httpd.h comes first: the other needs its types.
#include <http_config.h>

namespace tessel {

// Apache stores functions of all shapes as one type and calls them by the shape that goes with the
// directive.
template <typename Function>
cmd_func asCommand(Function* function) {
  return reinterpret_cast<cmd_func>(reinterpret_cast<void (*)()>(function));
}

}  // namespace tessel
