// Makes system calls fail by a seeded schedule: linked by a test for its own process, preloaded
// (LD_PRELOAD) into those that it starts. A forked process goes on with its parent's schedule.
//
// The plan stands in TAVO_FAULT: an error, of how many calls one fails, a seed, a number of bytes,
// and the calls' names with a blank before and behind each. An error is an errno or one of these.
//
// The shim stands in front of the C library's functions. Those on sockets are called by the desk
// alone; read and write fail on pipes alone, so that the event loop's own descriptors stay whole.
#pragma once

namespace test {

constexpr int kOneByte = 0;  // Not a failure: one byte is read or written.
constexpr int kKilled = -1;  // The process is killed when it has sent that number of bytes.

}  // namespace test

// A process that preloads the shim begins by itself. The end tells how many calls failed.
extern "C" void TAVOFaultBegin();
extern "C" long TAVOFaultEnd();
