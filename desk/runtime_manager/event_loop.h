/* An event loop for hosts without Qt: a C program that uses libtavo.so on a desk runs its work
 * inside it, since the library's callbacks arrive there. On a device the host has its own. */
#ifndef TAVO_DESK_EVENT_LOOP_H_
#define TAVO_DESK_EVENT_LOOP_H_

#ifdef __cplusplus
extern "C" {
#endif

/* Calls begin(data) from within the loop and runs the loop on this thread until TAVODeskLeaveLoop;
 * returns the exit code given there. */
int TAVODeskRunLoop(void (*begin)(void* data), void* data);

/* Ends the loop, once the callback that calls this returns. On the loop's thread. */
void TAVODeskLeaveLoop(int exit_code);

#ifdef __cplusplus
}
#endif

#endif /* TAVO_DESK_EVENT_LOOP_H_ */
