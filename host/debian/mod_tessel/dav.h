// mod_dav's interface, which is C and has a member named by one of C++'s keywords.
#pragma once

#include <httpd.h>
// httpd.h comes first: the others need its types.
#include <apr_dbm.h>
#include <apr_hash.h>
#include <apr_hooks.h>
#include <apr_tables.h>
#include <util_filter.h>
#include <util_xml.h>

#include <climits>
#include <ctime>

#define namespace name_space
#include <mod_dav.h>
#undef namespace
