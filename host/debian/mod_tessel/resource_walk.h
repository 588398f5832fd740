// From a share's folder to the file that a URL means, as Apache's own walk from the root of the
// file system does it, but without looking at any <Directory> section or .htaccess on the way.
#pragma once

#include <httpd.h>

namespace tessel {

// Sets the request's filename, finfo and path_info for `rest`, the decoded part of the URL below
// the share. What does not exist is no failure: finfo says so. Returns OK, or the status to answer
// with: 404 when the share's folder is missing and for mod_dav's own property files, 403 for a
// symbolic link that dangles or whose target has another owner, for what is no file or folder, and
// for what cannot be looked at. After a failure the request names nothing. What another request,
// if one is given, was led to by this is not walked through again.
int walkToResource(request_rec* request, const char* folder, const char* rest,
                   const request_rec* walked);

// Makes the request name nothing, so that whoever looks at it finds no file.
void nameNothing(request_rec* request);

}  // namespace tessel
