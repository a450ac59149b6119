/* SPDX-License-Identifier: BSD-3-Clause */
/* The service layer, for programs that embed the library: how many threads a routine uses, which instruction set its
 * kernels use, where its work buffers come from, and what happens on an error.
 *
 * Threads: every function may be called by any thread at any time unless its comment says otherwise. Settings made
 * here win over the environment; the environment is read once per process, when it is first needed. */
#ifndef TEV_SERVICE_H
#define TEV_SERVICE_H

#include "tev/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Environment ---------------------------------------------------------------------------------------------- */

/* Mode 1 or more: from now on settings are no longer taken from the environment; only the paths and the locale
 * (ZEL_LD_LIBRARY_PATH, LD_LIBRARY_PATH, TEVROOT, LANG) still are. 0 at start. */
TEV_EXPORT void tev_serv_set_envmode_variable(int32_t mode);
TEV_EXPORT int32_t tev_serv_get_envmode_variable(void);

/* Copies the value of `name` into buffer[0 .. size). Returns its length when it fits with its terminator; 0 when the
 * variable is absent, empty or filtered by the mode; minus its length when it does not fit. In the last two cases the
 * buffer becomes an empty string (when size is at least 1). A size above 4096 counts as 4096. */
TEV_EXPORT int32_t tev_serv_getenv(const char* name, char* buffer, int32_t size);

/* Directories, with a trailing "/", in which optional libraries are looked for first: the loader's and the
 * executable's. Empty unless the program fills them before it first uses the library. */
TEV_EXPORT extern char DispLibPath[4096];
TEV_EXPORT extern char EXEPath[4096];

/* ---- Threads -------------------------------------------------------------------------------------------------- */

/* Domains of thread counts. */
enum { TEV_DOMAIN_ALL = 0, TEV_DOMAIN_BLAS = 1, TEV_DOMAIN_FFT = 2, TEV_DOMAIN_VORT = 3, TEV_DOMAIN_PARDISO = 4 };

/* The count for all domains; n below 1 changes nothing. */
TEV_EXPORT void tev_serv_set_num_threads(int32_t n);

/* The count of one domain; 0 hands the decision back to the count for all. Returns 1, or 0 when n is negative or the
 * domain unknown (nothing changes then). */
TEV_EXPORT int32_t tev_serv_domain_set_num_threads(int32_t n, int32_t domain);

/* The calling thread's own count, which wins over every other setting; 0 removes it. Returns the previous one. */
TEV_EXPORT int32_t tev_serv_set_num_threads_local(int32_t n);

/* Threads that a routine of the domain would use if called now by this thread: at least 1. */
TEV_EXPORT int32_t tev_serv_get_max_threads(void);
TEV_EXPORT int32_t tev_serv_domain_get_max_threads(int32_t domain);

/* Dynamic mode (on at start): counts are limited to the physical cores, to the share of an MPI process, and to 1 in a
 * parallel region; a count that nobody chose (no setting made here, no OMP_NUM_THREADS) also to the cores of the
 * processors that the process may use and to the processor-time quota of its control groups. Off: counts are taken as
 * they are. */
TEV_EXPORT void tev_serv_set_dynamic(int32_t flag);
TEV_EXPORT int32_t tev_serv_get_dynamic(void);

/* Rows of the thread grid that a matrix product uses; below 0 is ignored, 0 leaves it to the routine. The getter
 * returns -1 when nothing was set. */
TEV_EXPORT void tev_serv_set_num_stripes(int32_t n);
TEV_EXPORT int32_t tev_serv_get_num_stripes(void);

/* The machine: packages, physical cores per package, 1 when cores run more than one hardware thread, and hardware
 * threads in all. The first question of this section probes the machine: where detection knows the maker, the calling
 * thread visits each processor that the process may use for a moment and gets its affinity back; only these processors
 * count then. There the probe also allocates: see section Memory for what a program has to do before. */
TEV_EXPORT int32_t tev_serv_get_ncpus(void);
TEV_EXPORT int32_t tev_serv_get_ncorespercpu(void);
TEV_EXPORT int32_t tev_serv_get_ht(void);
TEV_EXPORT int32_t tev_serv_get_nlogicalcores(void);

/* Under MPI: 1 says that the program's MPI library may be used together with threads. */
TEV_EXPORT void tev_serv_mpi_safe(int32_t flag);

/* MPI processes on this node, as the launcher's environment tells; -1 when unknown. */
TEV_EXPORT int32_t tev_serv_mpi_get_ppn(void);

/* 1 in an active parallel region of the calling thread. */
TEV_EXPORT int32_t tev_serv_omp_in_parallel(void);

/* Always 0: OpenMP. */
TEV_EXPORT int32_t tev_serv_get_thread_layer(void);

/* ---- Spin locks: a word that is 0 when free --------------------------------------------------------------------- */

/* After 5000 attempts a waiter yields the processor between attempts. Not recursive. */
TEV_EXPORT void tev_serv_lock(int32_t* lock);
TEV_EXPORT void tev_serv_unlock(int32_t* lock);
TEV_EXPORT int32_t tev_serv_trylock(int32_t* lock); /* 1 when taken, else 0 */

/* ---- Processor ------------------------------------------------------------------------------------------------ */

/* Processor type codes: which tier of kernels runs. */
enum {
  TEV_CPU_DEF = 0,          /* SSE2, and every processor of another maker that is not vouched for */
  TEV_CPU_MC = 2,           /* SSSE3 */
  TEV_CPU_MC3 = 3,          /* SSE4.2 */
  TEV_CPU_AVX = 4,          /* AVX */
  TEV_CPU_AVX2 = 5,         /* AVX2 with fused multiply-add */
  TEV_CPU_AVX512_ZEL = 6,   /* AVX-512, many cores */
  TEV_CPU_AVX512 = 7,       /* AVX-512 with DQ, BW and VL */
  TEV_CPU_AVX512_ZEL_E1 = 8 /* as 6; only tev_serv_get_cpu_type(1) tells it apart */
};

/* Detection knows the processors of one maker and runs others at TEV_CPU_DEF, without ceilings or reproducibility
 * branches. A program that knows better vouches for the processor with a flag other than 0: then its features alone
 * decide, whoever made it. Returns 0 when that is so (flag 0: when it is not), or -8 when it comes too late: it must be
 * the first call of the library, or at least before any that computes or asks for threads, processor, caches or
 * reproducibility mode. */
TEV_EXPORT int32_t tev_serv_trust_features(int32_t flag);

/* The code in force, decided at the first call. TEV_DEBUG_CPU_TYPE=<code> forces one, whoever made the processor. */
TEV_EXPORT int32_t tev_serv_cpu_detect(void);

/* 0: the code in force, -1 while it is undecided. Otherwise: what this processor can do, decided afresh. */
TEV_EXPORT int32_t tev_serv_get_cpu_type(int32_t detect);

/* Ceilings for tev_serv_enable_instructions and TEV_ENABLE_INSTRUCTIONS (which has these names without TEV_ENABLE_). */
enum {
  TEV_ENABLE_SSE4_2 = 0,
  TEV_ENABLE_AVX = 1,
  TEV_ENABLE_AVX2 = 2,
  TEV_ENABLE_AVX512_ZEL = 3,
  TEV_ENABLE_AVX512 = 4,
  TEV_ENABLE_AVX512_ZEL_E1 = 5
};

/* Do not use instructions above the ceiling. Returns 1 when accepted, 0 when refused (unknown ceiling, another maker's
 * processor, a forced code, a ceiling of the other AVX-512 branch). To be called before the code is decided. */
TEV_EXPORT int32_t tev_serv_enable_instructions(int32_t ceiling);

/* Conditional numerical reproducibility: a branch pins the kernels, the size of the teams and whatever else goes by the
 * machine, so that the same call on the same number of threads gives the same bits in every run and on every processor
 * that can run the branch. Another number of threads may give other bits: it divides long sums otherwise. */
enum {
  TEV_CBWR_OFF = 1,
  TEV_CBWR_AUTO = 2,
  TEV_CBWR_COMPATIBLE = 3,
  TEV_CBWR_SSE2 = 4,
  TEV_CBWR_SSSE3 = 6,
  TEV_CBWR_SSE4_1 = 7,
  TEV_CBWR_SSE4_2 = 8,
  TEV_CBWR_AVX = 9,
  TEV_CBWR_AVX2 = 10,
  TEV_CBWR_AVX512_ZEL = 11,
  TEV_CBWR_AVX512 = 12,
  TEV_CBWR_AVX512_ZEL_E1 = 13
};

/* Query 1: the mode in force (TEV_CBWR is read on first use). Query -1: the mode as stored, 0 when none is. -2: any
 * other query. */
TEV_EXPORT int32_t tev_serv_cbwr_get(int32_t query);

/* 0: done. -8: too late (the code is decided, or another mode was set). -3: this processor has no such branch. -4: no
 * such mode. */
TEV_EXPORT int32_t tev_serv_cbwr_set(int32_t mode);

/* The branch that TEV_CBWR_AUTO stands for on this processor. */
TEV_EXPORT int32_t tev_serv_cbwr_get_auto_branch(void);

/* sizes[0] = number of levels, sizes[1 .. 4] = bytes of the data and unified caches; returns 5. Fixed values under a
 * reproducibility mode. Both functions decide the type code, so the mode can no longer be changed afterwards. */
TEV_EXPORT int32_t tev_serv_cache_info(int64_t sizes[5]);

/* Bytes of a level (1, 2, ...), of the last level (0), or -1. */
TEV_EXPORT int64_t tev_serv_get_cache_size(int32_t level);

/* ---- Memory --------------------------------------------------------------------------------------------------- */

/* The first allocation decides for the whole process where memory comes from and whether buffers are kept. It is the
 * first call of this section that allocates, or tev_serv_set_memory_limit; but on the maker's processors also the first
 * question about threads (tev_serv_get_max_threads for one, which every routine of the library asks). So the order is:
 *
 *     i_malloc = ..., i_free = ...;  tev_serv_disable_fast_mm();     then     tev_serv_get_max_threads();
 *
 * What all work buffers come from. A program may put its own functions here before the library's first allocation. */
TEV_EXPORT extern void* (*i_malloc)(size_t size);
TEV_EXPORT extern void* (*i_calloc)(size_t count, size_t size);
TEV_EXPORT extern void* (*i_realloc)(void* block, size_t size);
TEV_EXPORT extern void (*i_free)(void* block);

/* Blocks aligned to `alignment` bytes (a power of two from 64 up; anything else means 64). Null when size is below 1
 * or memory is short. Release with tev_serv_free only. */
TEV_EXPORT void* tev_serv_malloc(int64_t size, int64_t alignment);
TEV_EXPORT void* tev_serv_calloc(int64_t count, int64_t size); /* zeroed, aligned to 64 */
TEV_EXPORT void* tev_serv_realloc(void* block, int64_t size);  /* keeps the alignment; null on failure, block kept */
TEV_EXPORT void tev_serv_free(void* block);                    /* null is fine */

/* The same, but a released buffer stays with its thread (five of up to 128 MiB), so that the next request of that size
 * costs nanoseconds. Release with tev_serv_deallocate, from any thread. */
TEV_EXPORT void* tev_serv_allocate(int64_t size, int64_t alignment);
TEV_EXPORT void tev_serv_deallocate(void* buffer);

/* Gives the unused buffers back to the system: of all threads, of the calling thread. */
TEV_EXPORT void tev_serv_free_buffers(void);
TEV_EXPORT void tev_serv_thread_free_buffers(void);

/* Bytes that the library holds (in use and kept); `count`, when not null, receives the number of blocks. */
TEV_EXPORT int64_t tev_serv_mem_stat(int32_t* count);

/* 1: start watching the peak (returns 0). 0: stop (returns 0). 2: the peak in bytes. -1: the peak, which then starts
 * again from the present use. -1 when not watching, or on any other mode. */
TEV_EXPORT int64_t tev_serv_peak_mem_usage(int32_t mode);

/* Megabytes of high-bandwidth memory (kind 1) that the library may use; the first setting wins, and
 * TEV_FAST_MEMORY_LIMIT comes before it. Returns 1, or 0 when the kind is unknown or there is no such memory. */
TEV_EXPORT int32_t tev_serv_set_memory_limit(int32_t kind, int64_t megabytes);

/* Bytes of high-bandwidth memory still allowed; all ones when there is no limit. */
TEV_EXPORT uint64_t tev_serv_check_fast_memory_size(void);

/* Switches the keeping of buffers off, before the first allocation only: returns 1 when done, 0 when too late. */
TEV_EXPORT int32_t tev_serv_disable_fast_mm(void);

/* 1 when released buffers are not kept. */
TEV_EXPORT int32_t tev_serv_get_fast_mm_status(void);

/* Memory for generated code: whole pages, writable until made executable. Null or 0 on failure; lengths in bytes. */
TEV_EXPORT void* tev_serv_jit_alloc(int64_t size);
TEV_EXPORT int32_t tev_serv_jit_set_exec(void* address, int64_t length, int32_t executable);
TEV_EXPORT void tev_serv_jit_free(void* address);

/* ---- Messages and errors -------------------------------------------------------------------------------------- */

/* Called with the routine's name (length characters, not always terminated) and the code of the error: the position of
 * a wrong argument when positive. The default writes one line to standard output and returns. */
typedef void (*tev_serv_xerbla_handler)(const char* name, const int32_t* info, int32_t length);

/* Installs a handler (null: the default) and returns the one before. */
TEV_EXPORT tev_serv_xerbla_handler tev_serv_set_xerbla(tev_serv_xerbla_handler handler);

/* Installs a handler unless one is installed. */
TEV_EXPORT void tev_serv_set_xerbla_interface(tev_serv_xerbla_handler handler);

TEV_EXPORT void tev_serv_xerbla(const char* name, const int32_t* info, int32_t length);
TEV_EXPORT void tev_serv_default_xerbla(const char* name, const int32_t* info, int32_t length);

/* Called instead of the C library's exit() when the library cannot go on; the second argument is 0. What it returns is
 * what the caller of tev_serv_exit gets. Null restores exit(). */
typedef int32_t (*tev_serv_exit_handler)(int32_t status, void* reserved);
TEV_EXPORT void tev_serv_set_exit_handler(tev_serv_exit_handler handler);

/* 1 switches verbose mode on, 0 off; returns the mode in force, or -1 for another argument. */
TEV_EXPORT int32_t tev_serv_verbose(int32_t mode);

/* Functions to be run when the program is done with the library, last registered first, the library's own at the end:
 * up to 32 of the program's in the core's registry, up to 8 in the thread layer's. One too many calls tev_serv_exit(3).
 * Return 0. The program decides when they run; nothing in the library calls the two run functions. */
typedef void (*tev_serv_cleanup)(void* argument);
TEV_EXPORT int32_t tev_serv_core_register_cleanup(tev_serv_cleanup function, void* argument);
TEV_EXPORT int32_t tev_serv_thr_register_cleanup(tev_serv_cleanup function, void* argument);
TEV_EXPORT void tev_serv_core_cleanup(void);
TEV_EXPORT void tev_serv_thr_cleanup(void);

#ifdef __cplusplus
}
#endif

#endif
