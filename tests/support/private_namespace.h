#pragma once

namespace test_support {

// Moves the process into a mount namespace of its own, in which the fixed paths of the service are
// empty and writable: /tmp, /run, /opt and the journal's folders, and /etc with an empty
// /etc/trelvo and a machine id of its own. The build and source trees stay where they are. All of
// it ends with the process and its children, so tests run in parallel and leave the machine alone.
//
// A user who may not make a mount namespace gets a user namespace as well and is uid 0 in it.
// REQUIRES: no thread was started yet. Ends the program with status 1 and one line when the
// namespace cannot be made: tests that would write into the machine's own paths must not run.
void EnterPrivateNamespace();

}  // namespace test_support
