/* SPDX-License-Identifier: BSD-3-Clause */
/* The offload runtime as a host program sees it (libvro_host): start a sink process, share buffers with it, run its
 * functions by name. C11 and C++20.
 *
 * A sink trusts its host completely: it calls whatever function of its process a request names, and believes every size
 * and offset in it (tev/check.h checks a request against its buffers before it is sent).
 *
 * Every function that can fail returns VRO_OK or an error code, and vro_last_error() then tells the calling thread in
 * words what happened. All functions may be called from any thread; one handle must not be destroyed while another
 * thread uses it.
 *
 * A good guest: no signal handler is touched, SIGPIPE is never raised, interrupted calls are restarted, no wait
 * outlasts the sink, whose end is noticed even when the program reaps every child itself. A Ctrl-C at the terminal
 * reaches the program alone: the sink has a process group of its own, and ends when the program does. A forked child
 * has no connection: there every call fails with VRO_ENDED and the sink goes on serving the parent. */
#ifndef VRO_HOST_H
#define VRO_HOST_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vro_process vro_process;       /* a running sink and its one pipeline */
typedef struct vro_buffer vro_buffer;         /* memory that host and sink both see */
typedef struct vro_completion vro_completion; /* a run function under way */

enum {
  VRO_OK = 0,
  VRO_INVALID = 1, /* an argument is wrong, or the sink refused the request; it goes on serving */
  VRO_SYSTEM = 2,  /* the operating system refused something (memory, descriptors, no such executable) */
  VRO_ENDED = 3,   /* the sink has ended: exited, crashed, was killed or shut down */
  VRO_TIMEOUT = 4  /* not done yet; wait again */
};

enum {
  VRO_MAX_MISC = 65535,   /* bytes of miscellaneous data of one call */
  VRO_MAX_RESULT = 65535, /* bytes of the return value of one call */
  VRO_MAX_BUFFERS = 127,  /* buffers of one call */
  VRO_MAX_NAME = 255      /* bytes of a function's name, without the NUL */
};

typedef struct vro_process_options {
  const char* executable;         /* path of the sink */
  const char* const* environment; /* "NAME=value", NULL-terminated; NULL: the caller's environment */
  const char* library_path;       /* directories put before LD_LIBRARY_PATH of the sink; may be NULL */
  int output;                     /* descriptor that becomes the sink's standard output; -1: the caller's */
  int detached; /* 1: the sink is no child of this program, whose own waits for any child never meet it; how it ended is
                   then not known. It ends with the program all the same */
} vro_process_options;

/* Starts a sink and waits (at most 10 seconds) until it serves. On failure *process is NULL. */
int vro_process_create(const vro_process_options* options, vro_process** process);

/* Lets the sink finish what was requested and end; after timeout_ms it is killed. Frees the handle and every buffer
 * and completion of this process that is still alive: do not touch them afterwards. Returns VRO_OK when the sink ended
 * by itself with status 0, VRO_ENDED when it had to be killed or had ended before. NULL is allowed. */
int vro_process_shutdown(vro_process* process, int timeout_ms);

/* Kills the sink. Handles stay, and so does the memory of the buffers; whatever is under way or comes later fails with
 * VRO_ENDED and says `why`: "took too long", for one. Nothing happens when the sink has ended already. */
int vro_process_kill(vro_process* process, const char* why);

/* The process number of the sink. */
int64_t vro_process_id(const vro_process* process);

/* Makes a zeroed buffer of `bytes` (at least 1) that both sides map. Waits while a busy sink has so many new buffers to
 * take that the system allows no more under way (as many as the program's limit of open files). A program's limit of
 * file sizes holds for buffers, too: VRO_SYSTEM, and no SIGXFSZ. */
int vro_buffer_create(vro_process* process, size_t bytes, vro_buffer** buffer);

/* Where the buffer lies in this process; page-aligned, valid until it is destroyed, also after the sink has ended. */
void* vro_buffer_map(vro_buffer* buffer);

size_t vro_buffer_size(const vro_buffer* buffer);

/* Unmaps the buffer on both sides; in the sink after the requests already under way. The handle is freed whatever is
 * returned. NULL is allowed. */
int vro_buffer_destroy(vro_buffer* buffer);

/* Puts a call of the sink's function `name` at the end of the pipeline. `misc` is copied at once. Returns at once,
 * unless the pipeline is so full (of some hundred kilobytes) that the sink must first take something out. The caller
 * must not write to the buffers, nor read results from them, before the completion says done. */
int vro_run(vro_process* process, const char* name, vro_buffer* const* buffers, uint32_t buffer_count, const void* misc,
            size_t misc_length, size_t result_length, vro_completion** completion);

/* Waits until the call is done; 0 only looks. A negative time-out counts as the longest possible (about 24 days).
 * VRO_OK: the function ran. VRO_TIMEOUT: wait again. Else the call failed, and says so each time. */
int vro_completion_wait(vro_completion* completion, int timeout_ms);

/* After VRO_OK: the miscellaneous data and the return value as the function left them, until the release. */
const void* vro_completion_misc(const vro_completion* completion);
const void* vro_completion_result(const vro_completion* completion);

/* Forgets the call; it still runs. NULL is allowed. */
void vro_completion_release(vro_completion* completion);

/* What went wrong in the calling thread's last failed call; "" when none did. Valid until the thread's next call.
 * Printable: a control character, also of what a sink said, is a question mark. */
const char* vro_last_error(void);

#ifdef __cplusplus
}
#endif

#endif
