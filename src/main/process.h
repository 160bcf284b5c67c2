// Process-level set-up: detaching into the background and the termination signals.
#ifndef WSGATE_MAIN_PROCESS_H
#define WSGATE_MAIN_PROCESS_H

// Detaches by a double fork. The original process waits for the first child and exits 0
// when it succeeded; returns false there when it did not. In the daemon (second child) the
// directory is "/", descriptors 0-2 are "/dev/null", the umask is 022, and true is returned.
bool detachProcess();

// SIGHUP, SIGINT, SIGQUIT and SIGTERM set the termination flag. They interrupt the loop's
// select(), but not the reads and writes of a request in progress.
void installTerminationHandler();
// Back to the default disposition of those four signals.
void restoreTerminationSignals();

#endif  // WSGATE_MAIN_PROCESS_H
