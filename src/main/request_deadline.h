// One deadline per request, from accepting its connection to finishing its answer. The
// FastCGI library reads and writes with blocking calls and no time-outs of its own, so a
// caller that trickles its request, or never reads its answer, would hold the only thread
// for as long as it liked. A timer ends that: at the deadline the connection is shut for
// reading (a request still arriving ends as if the caller had stopped, and still gets its
// fault), and a grace second later for writing too (an answer nobody reads is dropped).
// A shutdown, unlike close(), leaves the descriptor to its owner, so the timer can never
// hit a descriptor that has been reused meanwhile.
#ifndef WSGATE_MAIN_REQUEST_DEADLINE_H
#define WSGATE_MAIN_REQUEST_DEADLINE_H

// Creates the process's timer and its SIGALRM handler. False when the system refused.
bool installRequestDeadline();

// Starts the deadline of the request on connection `fd`, `milliseconds` from now (at least
// one). Replaces any earlier deadline.
void armRequestDeadline(int fd, long milliseconds);

// Stops the deadline; the connection is left as it is. Call before closing the connection.
void disarmRequestDeadline();

// Detaches the deadline from its connection without stopping the timer, which saves a
// system call per request: the next armRequestDeadline replaces the timer, and an expiry
// before that does nothing but interrupt a wait (the loop then disarms it). Call before
// closing the connection.
void releaseRequestDeadline();

#endif  // WSGATE_MAIN_REQUEST_DEADLINE_H
