// The active graphical session, as logind on the system bus reports it: whose it is and
// where its display is, for apps registered to run in it ("session=1").
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace host {
namespace apps {

struct GraphicalSession {
    std::string id;
    uid_t uid = 0;
    std::string user;
    std::vector<std::string> env;  // DISPLAY or WAYLAND_DISPLAY, XDG_RUNTIME_DIR
};

// The first active session of type x11 or wayland and class user. False with *why when
// logind cannot be asked or has none.
bool FindGraphicalSession(GraphicalSession* session, std::string* why);

}  // namespace apps
}  // namespace host
