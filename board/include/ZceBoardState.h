#ifndef ZCE_BOARD_STATE_H
#define ZCE_BOARD_STATE_H

/* Whether the software board that a process uses still runs. C99 and C++11.
 *
 * The software board's libenyx-hw-c.so.5 has this function, the board vendor's library has not. An
 * application that is to run on both asks the loader for it:
 *
 *     ZceBoardState_f pState = (ZceBoardState_f)dlsym(RTLD_DEFAULT, ZCE_BOARD_STATE_NAME);
 *     if (pState != NULL && pState() != ZCE_BOARD_RUNS) ...
 */

#ifdef __cplusplus
extern "C" {
#endif

enum {                     /* NOLINT: as those of ZceBoardMsg.h */
       ZCE_BOARD_RUNS = 0, /* or the process has opened no board */
       ZCE_BOARD_GONE = 1, /* it has ended: nothing more comes from it */
       ZCE_BOARD_NEW = 2   /* it has ended, and another one runs on its bus, which this process has
                              nothing of until it is started anew */
};

/* One of the three. Of a process that has opened boards on several buses the highest; on each bus
 * the board that it opened last counts. A board that has gone does not come back, so for a process
 * that opens no other one the result never falls.
 *
 * It asks the kernel, some microseconds of system calls, and nothing has to be polled for it: to be
 * called now and then, not for each message. From any thread; it waits for no thread that polls,
 * and none waits for it. errno is left alone. */
int zce_board_state(void); /* NOLINT(modernize-redundant-void-arg) */

typedef int (*ZceBoardState_f)(void); /* NOLINT(modernize-use-using,modernize-redundant-void-arg) */

#define ZCE_BOARD_STATE_NAME "zce_board_state"

#ifdef __cplusplus
}
#endif

#endif
