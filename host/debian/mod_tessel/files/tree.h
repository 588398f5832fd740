// What is done to whole trees in shares: to copy, move and remove them so that clients see all of
// it or nothing. What is not finished, and what is being taken apart, is in a hidden folder.
//
// Every path is a place that was found by descriptor; links in a tree are never followed. Nothing
// of what fails half-way is seen, and nothing that was there is lost: the codes of Errors are those
// of errno, EXDEV among them for a tree that cannot be moved to another file system as it is.
#pragma once

#include <functional>

#include "host/debian/mod_tessel/files/place.h"

namespace tessel {

// What is told of the work before clients see its result. An Error of these is the operation's, and
// nothing has happened then. `below` is the path of a part inside the tree, "" for the whole.
struct TreeEvents {
  std::function<Status(const std::string& below, const FileIdentity& from,
                       const FileIdentity& made)>
      copied;
  // Of what is copied, once it is complete and before it takes its place.
  std::function<Status()> willShow;
  // Of a move that is a rename.
  std::function<Status()> willRename;
  std::function<void()> didNotRename;
};

// Copies a file, or a folder with all files and folders in it unless it is not `deep`, to a place
// in a folder that exists. What stands there is replaced. A file keeps mode, lists and attributes
// of the one that it replaces. Links, pipes, sockets and devices in the tree are left out.
Status copyItem(const Place& from, const Place& to, bool deep, const TreeEvents& events);

// Moves a file, link or folder. What stands at the destination is replaced. Across file systems it
// is copied with times and modes, then removed; a tree with anything but files and folders in it
// cannot be moved so (EXDEV).
Status moveItem(const Place& from, const Place& to, const TreeEvents& events);

// Removes a file, link or folder with all that is in it. A folder in which something cannot be
// removed stays whole.
Status removeItem(const Place& place);

// Removes all that is in a folder, as far as it can.
Status removeContent(const FileDescriptor& folder);

}  // namespace tessel
