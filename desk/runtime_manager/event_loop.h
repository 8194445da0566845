/* An event loop for hosts without Qt. The callbacks of libtavo.so arrive in such a loop, so a C
 * program that uses the library on a desk runs its work inside it. On a device the host has its own
 * loop.
 *
 *   static void Begin(void* data) { StartTask(data); }    ... later TAVODeskLeaveLoop(0);
 *   int main(void) { return TAVODeskRunLoop(Begin, NULL); }
 *
 * Threads. Both functions are called on one thread, which is the library's event loop thread. */
#ifndef TAVO_DESK_EVENT_LOOP_H_
#define TAVO_DESK_EVENT_LOOP_H_

#ifdef __cplusplus
extern "C" {
#endif

/* Runs the loop on this thread until TAVODeskLeaveLoop, and returns the exit code given there.
 * Calls begin(data) once, from within the loop; `begin` may be null. `data` is borrowed for the
 * call. Only one loop may run at a time. */
int TAVODeskRunLoop(void (*begin)(void* data), void* data);

/* Ends the loop, after the callback that calls this has returned. Without a loop it does nothing.
 */
void TAVODeskLeaveLoop(int exit_code);

#ifdef __cplusplus
}
#endif

#endif /* TAVO_DESK_EVENT_LOOP_H_ */
