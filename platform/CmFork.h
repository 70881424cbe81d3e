#pragma once

/// Makes a fork safe for what a child may still call: SetSink, SetWakeUp and Detach. From now on a
/// fork of the process waits until nobody is inside the short locked parts of these, and the child
/// forgets the calls and the waiting threads that only its parent has. Called before the first of
/// those locks is taken; does nothing after the first time, and on systems without fork.
void CmWatchForks();
