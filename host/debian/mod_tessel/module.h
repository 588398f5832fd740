// The module by its name, under which Apache logs what is said here and keeps what belongs to a
// request. To be included before the first function, as Apache's macro wants it.
#pragma once

#include <httpd.h>
// httpd.h comes first: the others need its types.
#include <http_config.h>
#include <http_log.h>

extern "C" {
extern module AP_MODULE_DECLARE_DATA tessel_module;
}
APLOG_USE_MODULE(tessel);
