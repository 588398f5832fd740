// What a request means: which share, and what in it, found by descriptor once and kept with the
// request for whoever answers it.
#pragma once

#include <httpd.h>

#include <memory>
#include <string>

#include "host/debian/mod_tessel/buffer_pool.h"
#include "host/debian/mod_tessel/files/place.h"
#include "host/debian/mod_tessel/output.h"
#include "host/debian/mod_tessel/share_folders.h"
#include "host/debian/mod_tessel/share_url.h"
#include "host/debian/mod_tessel/state/state.h"

namespace tessel {

// What a child process of Apache keeps for a server.
struct ServerData {
  ShareFolders folders;
  State* state = nullptr;  // of the process; null in the parent process
  BufferPool buffers{Output::kCapacity};
};

struct ShareRequest {
  ShareURL::Kind kind = ShareURL::Kind::List;
  int status = OK;         // or what to answer with
  std::string prefix;      // of the location, without a slash at its end
  std::string name;        // of the share, empty for the list
  std::string rest;        // of the path, below the share
  bool isKnown = false;    // whether there is such a share
  std::string folderPath;  // of the share
  bool wasLookedFor = false;
  FileDescriptor folder;  // of the share
  Found found;
  bool isTaken = false;  // whether mod_dav has what was found
  ServerData* server = nullptr;
};

// The meaning of a request below a location where shares are served; null for any other.
ShareRequest* shareRequestOf(request_rec* request);

// Notes which share the path means; the status is 404 when there is none, and httpStatusOf() when
// that cannot be told. Returns false when the path does not lie below the location.
bool findShare(request_rec* request, const char* prefix, ServerData& server);

// Opens what the request means and tells Apache of it as far as Apache needs it: whether it is a
// file or a folder, under a name that leads nowhere but tells the type. Sets the status to answer
// with: 404 for private names and a share's folder that is gone, 403 for what the rules or the
// system refuse, httpStatusOf() for what fails. Only the first call does anything.
void findFile(request_rec* request, ShareRequest& share);

// Gives a request a file name below nothing, so that no other module finds a file by it.
void nameNothing(request_rec* request);
// Whether it has such a one.
bool isNowhere(const request_rec* request);

// The status that says this of a file: a number of errno's.
int httpStatusOf(int number);
// Whether that is a failure of the machine, which says nothing of the file (5xx).
bool isFailure(int number);

}  // namespace tessel
