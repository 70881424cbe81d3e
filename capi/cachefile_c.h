#ifndef CACHEFILE_C_H
#define CACHEFILE_C_H

/** @file
 * The cache file library for hosts in C, and in any language that can call C.
 *
 * It compiles as C11 and as C++. docs/c-interface.md has a quick start; examples/c has complete
 * programs.
 *
 * Rules that hold for every function:
 *
 * - Results: A function that can fail returns an int32_t: CACHEFILE_OK (0) or a code of
 *   cachefile_result. On failure it does not change its out-parameters unless its comment says
 *   otherwise. Any function that allocates memory can return CACHEFILE_ERR_OUT_OF_MEMORY.
 * - Null arguments: For a null pointer as a required argument, a function returns
 *   CACHEFILE_ERR_INVALID_ARG, or 0 if it returns a value instead of a code. The destroy
 *   functions and cachefile_free accept null and do nothing. A comment says "may be null" if
 *   null is allowed.
 * - Handles: The create function creates a handle, and the destroy function frees it. Using it
 *   after that is an error that the library cannot detect.
 * - Ownership: The caller still owns everything that it passes in. Strings, structs and the
 *   bytes of a write are copied during the call. The only exception is the buffer of
 *   cachefile_player_read, which must stay valid until the read has ended (see there). The
 *   library owns what it returns as a const pointer.
 * - Structs: Each struct begins with struct_size. Start from its _INIT macro, or set
 *   struct_size to the struct's size and every other field to 0. Later versions add fields at
 *   the end only. A struct that is too small gives CACHEFILE_ERR_INVALID_ARG, and so does a
 *   reserved field that is not 0. A larger struct, from a later version of this header, is
 *   accepted if the fields that this library does not know are 0. A function that fills a
 *   struct sets only the fields that struct_size covers.
 * - Paths: Paths are UTF-8 in the form of the system: "recordings/7" on Linux, and either
 *   slash on Windows. A relative path is relative to the current directory of the process. On
 *   Linux a path that contains a backslash gives CACHEFILE_ERR_INVALID_ARG, because the library
 *   cannot express it. On Windows the path of a container may contain any character. Any other
 *   path must be expressible in the code page of the process (UTF-8, if the host's manifest
 *   says so); otherwise the result is CACHEFILE_ERR_INVALID_ARG.
 * - Threads: One thread makes all calls for writers and players, the driving thread. If any of
 *   them is asynchronous, it is the thread that called cachefile_caller_attach. Callbacks run
 *   on this thread, inside a call of the host, and no lock is held. Any thread may use a packer
 *   or an index, but only one at a time. A comment says "Any thread" if any thread may call the
 *   function at any time.
 * - Callbacks: A callback may call any function, including the destroy function of the handle
 *   that it was called for. The trace sink and the wake-up function are more restricted (see
 *   there). A callback must return normally: it must not leave by longjmp, and a C++ exception
 *   that leaves it ends the process (std::terminate). No exception ever leaves a function of
 *   this header.
 */

#include <stddef.h>
#include <stdint.h>

#include "core/Version.h"
#include "platform/CmExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Result codes ---- */

typedef enum cachefile_result {
    CACHEFILE_OK = 0,
    CACHEFILE_ERR_NOT_FOUND = 4001,     /**< a file or a directory of the path does not exist */
    CACHEFILE_ERR_BAD_CONTAINER = 4002, /**< the file is not a container, or it is damaged */
    CACHEFILE_ERR_DISK_FULL = 4003,     /**< no space left on the device */
    CACHEFILE_ERR_ACCESS_DENIED = 4004, /**< permission denied */
    CACHEFILE_ERR_BAD_PATH = 4005,      /**< the path cannot be created */
    CACHEFILE_ERR_FAILED = 4006,        /**< the file operation failed for another reason */
    CACHEFILE_ERR_NOT_OPEN = 4007,      /**< the file is not open */
    CACHEFILE_ERR_ALREADY_OPEN = 4008,  /**< this player has already opened a container */
    CACHEFILE_ERR_INVALID_ARG = 4009,   /**< an argument is invalid */
    CACHEFILE_ERR_INVALID_STATE = 4010, /**< the state does not allow the operation */
    CACHEFILE_ERR_OUT_OF_MEMORY = 4011, /**< out of memory */
    CACHEFILE_ERR_WRITE_DENIED = 4012,  /**< permission denied for writing */
    CACHEFILE_ERR_TRY_AGAIN = 4013      /**< the limit of pending bytes is reached: try later */
} cachefile_result;

/** Returns the library's name of a code, as the trace and the command line show it:
 * "CACHE_ERR_DISK_FULL" for 4003, and "unknown" for a number that is not a code. The text is valid
 * while the library is loaded. Any thread. */
CACHEFILE_API const char* cachefile_result_name(int32_t result);

/** Returns the meaning of a code, a short lower-case phrase. The text is valid while the library is
 * loaded. Any thread. */
CACHEFILE_API const char* cachefile_result_text(int32_t result);

/* ---- The process ---- */

/** Returns the version of the library that the process has loaded, such as "1.2.3". It may be newer
 * than this header, whose version is in CACHEFILE_VERSION_MAJOR, _MINOR and _PATCH. The text is
 * valid while the library is loaded. Any thread. */
CACHEFILE_API const char* cachefile_version(void);

/** Returns the same version as a number, for comparisons with CACHEFILE_VERSION_NUMBER: 1.2.3 is
 * 10203. Any thread. */
CACHEFILE_API uint32_t cachefile_version_number(void);

/** Sets the home directory, in which each recording has a directory named by its number. Existing
 * writers and players keep theirs. It is "./kvr2" at first; "" is the current directory. Driving
 * thread. */
CACHEFILE_API int32_t cachefile_set_home_dir(const char* directory);

/** Returns how many bytes have been lost in this process after the call that took them had
 * succeeded. It never decreases; 0 at the end of a recording means that everything was written. Any
 * thread. */
CACHEFILE_API uint64_t cachefile_lost_bytes(void);

/** Returns how many bytes of asynchronous files are accepted and not yet written, in the whole
 * process. Any thread. */
CACHEFILE_API uint64_t cachefile_pending_bytes(void);

/** Limits the pending bytes. A write that would exceed the limit takes nothing and returns
 * CACHEFILE_ERR_TRY_AGAIN. It returns CACHEFILE_ERR_OUT_OF_MEMORY instead if it would exceed the
 * limit even when nothing is pending. Values below 65,536 count as 65,536; UINT64_MAX, the value at
 * the start, means no limit. Any thread. */
CACHEFILE_API void cachefile_set_pending_limit(uint64_t bytes);

/** Lets a thread of the library sync written files. From now on the bytes of a write are on the
 * disk after this many milliseconds and the time of one sync. After a failed sync all bytes of the
 * file since its last successful sync count as lost. The failure is reported as that of a write: as
 * CACHEFILE_OP_WRITE, or without CACHEFILE_ASYNC by the next write, sync or close of the file,
 * which then does nothing else. 0 ends the interval after all unsynced bytes are synced, and so
 * does a shutdown. CACHEFILE_ERR_INVALID_STATE in a forked child. Any thread. */
CACHEFILE_API int32_t cachefile_set_sync_interval(uint32_t milliseconds);

/** Returns how many bytes are written and not yet synced, in the whole process. Only files count
 * that are written to while an interval is set, or that were synced with cachefile_writer_sync. Any
 * thread. */
CACHEFILE_API uint64_t cachefile_unsynced_bytes(void);

/** If on is not 0, a host whose write returned CACHEFILE_ERR_TRY_AGAIN is woken, once, when the
 * smallest refused write fits and the limit that refused it is at most half used. A wait returns,
 * the wake-up function is called and the descriptor becomes readable, as for a callback; runs do
 * not count it. 0, the value at the start, means no wake-up. Any thread. */
CACHEFILE_API void cachefile_set_room_wake_up(int32_t on);

/** Sets how many milliseconds gathered bytes may stay in memory. 0, the value at the start, means
 * until the buffer is full. In asynchronous mode the caller thread passes them on in the next call
 * for any writer or player, or when its queue runs; a host that only waits is woken in time. In
 * synchronous mode they are passed on in the next call on the thread that wrote them. Such a flush
 * is never refused and does not change the result of the call. Any thread. */
CACHEFILE_API void cachefile_set_gather_age(uint32_t milliseconds);

/** Passes on the gathered bytes of the calling thread that have reached the age. For synchronous
 * hosts that make no other call for a while. Any thread. */
CACHEFILE_API void cachefile_flush_aged(void);

/** Ends asynchronous mode: waits until the worker thread has written everything that was accepted,
 * ends the worker, and then runs callbacks until none is pending. Close the files or destroy the
 * handles first. Driving thread, also inside a callback. Always returns 0.
 *
 * Call it before the process ends or the library is unloaded. On Windows, accepted bytes are lost
 * otherwise. A later asynchronous open starts a new worker. */
CACHEFILE_API int32_t cachefile_shutdown(void);

/** Frees memory that the library has allocated for the host (cachefile_player_read_alloc). memory
 * may be null. Any thread. */
CACHEFILE_API void cachefile_free(void* memory);

/* ---- Trace ---- */

typedef enum cachefile_trace_level {
    CACHEFILE_TRACE_ERROR = 0, /**< failures */
    CACHEFILE_TRACE_INFO = 20  /**< creation of handlers and files as well */
} cachefile_trace_level;

/** Receives one line without a line break. text is valid only during the call. The sink runs on the
 * thread that traces, which may be the worker, and may run on several threads at once. It must not
 * wait for the driving thread. The only function of the library that it may call is
 * cachefile_set_trace. */
typedef void (*cachefile_trace_sink)(void* user, int32_t level, const char* text);

/** Installs sink for lines up to level; null removes it. After it returns, no call of an earlier
 * sink is running on another thread, so the objects that the sink used may be freed. Without a sink
 * nothing is formatted. On failure the earlier sink stays. Any thread. */
CACHEFILE_API int32_t cachefile_set_trace(cachefile_trace_sink sink, void* user, int32_t level);

/* ---- The caller thread: asynchronous mode ---- */

/** Makes the calling thread the caller thread. Only this thread may use asynchronous handles, and
 * all callbacks run on it. Repeated calls on the same thread nest. CACHEFILE_ERR_INVALID_STATE
 * while another thread is attached. */
CACHEFILE_API int32_t cachefile_caller_attach(void);

/** Undoes one attach. The last detach discards pending callbacks, removes the wake-up function and
 * closes the descriptor. Files that are still open report nothing more, but accepted bytes are
 * still written. CACHEFILE_ERR_INVALID_STATE on any other thread. */
CACHEFILE_API int32_t cachefile_caller_detach(void);

/** Returns 1 on the caller thread, 0 on any other. Any thread. */
CACHEFILE_API int32_t cachefile_caller_is_current(void);

/** Runs the callbacks that are pending now, and returns without waiting for more. count, which may
 * be null, receives the number of callbacks that ran. May be called from a callback.
 * CACHEFILE_ERR_INVALID_STATE on any other thread, with a count of 0. */
CACHEFILE_API int32_t cachefile_caller_run_pending(uint32_t* count);

/** As cachefile_caller_run_pending, but if no callback is pending it first waits for one, at most
 * for this many milliseconds. If none arrives in time, it returns 0 with a count of 0. */
CACHEFILE_API int32_t cachefile_caller_wait_and_run(uint32_t milliseconds, uint32_t* count);

/** Called when callbacks become pending while none was, on the thread that posts them, usually the
 * worker. It must not wait for the caller thread and must not call the library. Its purpose is to
 * post a message to the host's own loop, which then calls cachefile_caller_run_pending. There can
 * be calls without a pending callback. */
typedef void (*cachefile_wake_up)(void* user);

/** Installs wake_up; null removes it. After it returns, no call of an earlier one is running on
 * another thread. If callbacks are pending, wake_up is called before this returns.
 * CACHEFILE_ERR_INVALID_STATE on any thread but the caller thread. */
CACHEFILE_API int32_t cachefile_caller_set_wake_up(cachefile_wake_up wake_up, void* user);

/** Sets descriptor to one for poll, select or epoll that is readable while callbacks are pending.
 * The host only polls it; the library reads, writes and (at the last detach) closes it.
 * CACHEFILE_ERR_INVALID_STATE on any thread but the caller thread, CACHEFILE_ERR_FAILED if the
 * system has no such descriptors (Windows), both with a descriptor of -1. */
CACHEFILE_API int32_t cachefile_caller_get_descriptor(int* descriptor);

/* ---- Descriptions of data, and callbacks ---- */

/** Describes a record file, or a stream of a container. */
typedef struct cachefile_describer {
    size_t struct_size;
    uint32_t file_id;
    uint32_t extra_info; /**< a value of the host, which the library does not interpret */
    uint16_t data_type;
    uint8_t file_kind; /**< a single bit: 1, 2 or 4 */
    uint8_t reserved[5];
} cachefile_describer;

#define CACHEFILE_DESCRIBER_INIT                                   \
    {                                                              \
        sizeof(cachefile_describer), 0, 0, 0, 0, { 0, 0, 0, 0, 0 } \
    }

/** Selects the data of a request: the first file or stream with this type and id whose kind is in
 * the mask. */
typedef struct cachefile_data_info {
    size_t struct_size;
    uint32_t file_id;
    uint32_t data_length; /**< a value of the host, which on_data receives unchanged */
    uint16_t data_type;
    uint8_t file_kinds; /**< a mask of kinds */
    uint8_t reserved[5];
} cachefile_data_info;

#define CACHEFILE_DATA_INFO_INIT                                   \
    {                                                              \
        sizeof(cachefile_data_info), 0, 0, 0, 0, { 0, 0, 0, 0, 0 } \
    }

typedef enum cachefile_operation {
    CACHEFILE_OP_OPEN = 1,
    CACHEFILE_OP_CLOSE = 2,
    CACHEFILE_OP_READ = 3,
    CACHEFILE_OP_WRITE = 4
} cachefile_operation;

/** The callbacks of a writer or a player. The struct is copied. user is passed to each call. A null
 * function is not called. */
typedef struct cachefile_callbacks {
    size_t struct_size;
    void* user;

    /** Reports the result of an asynchronous operation: of every open, and of a close, read or
     * write only if it failed on the worker thread. It is not called for a call that returned an
     * error. */
    void (*on_status)(void* user, int32_t operation, int32_t result);

    /** Reports the end of a player's read (see cachefile_player_read). length is the number of
     * bytes read. info is a copy of the info of the read, valid during the call. */
    void (*on_data)(void* user, void* request, void* data, uint32_t length,
                    const cachefile_data_info* info);
} cachefile_callbacks;

#define CACHEFILE_CALLBACKS_INIT \
    { sizeof(cachefile_callbacks), NULL, NULL, NULL }

/** Flags of the create functions. Any other bit gives CACHEFILE_ERR_INVALID_ARG. */
enum {
    CACHEFILE_ASYNC = 1,   /**< asynchronous mode */
    CACHEFILE_DOWNLOAD = 2 /**< players only: may open one container */
};

/** The offset of a write that appends. */
#define CACHEFILE_END UINT32_C(0xFFFFFFFF)

/* ---- Writer: records the files of one recording ---- */

typedef struct cachefile_writer cachefile_writer;

/** Creates a writer for the recording record_id. Its files go into the directory record_id of the
 * home directory. callbacks may be null; flags is 0 or CACHEFILE_ASYNC. */
CACHEFILE_API int32_t cachefile_writer_create(uint32_t record_id, uint32_t flags,
                                              const cachefile_callbacks* callbacks,
                                              cachefile_writer** writer);

/** Closes the open files and frees the writer. No callback of this writer is called after this
 * function has begun; accepted bytes are still written. To receive the last failures, close the
 * files and call cachefile_shutdown first. writer may be null. */
CACHEFILE_API void cachefile_writer_destroy(cachefile_writer* writer);

/** Sets the directory for files that the writer opens after this call. "" is the current directory.
 */
CACHEFILE_API int32_t cachefile_writer_set_dir(cachefile_writer* writer, const char* directory);

/** Opens the file name in the writer's directory. Missing directories are created, and an existing
 * file is emptied. file receives a number that identifies the file until it is closed, or 0 on
 * failure. In asynchronous mode the result 0 means that the open was queued; on_status reports how
 * it ended. The host may write before that.
 * 4001, 4003, 4004, 4006, 4012: why the file could not be opened. 4010: asynchronous mode without
 * an attached thread, or during a shutdown. */
CACHEFILE_API int32_t cachefile_writer_open(cachefile_writer* writer, const char* name,
                                            uint32_t* file);

/** Writes length bytes at offset (below 2^31), or at the end for CACHEFILE_END. An append usually
 * only gathers the bytes. A write at an offset first passes on the gathered bytes. data may be null
 * if length is 0. In asynchronous mode on_status reports a later failure as CACHEFILE_OP_WRITE.
 * 4010: no such file, or the worker was stopped. 4003, 4006: a write that this call caused failed,
 * or the open of the file failed. 4011: no memory, or these and the gathered bytes alone exceed the
 * limit of pending bytes. 4013: the limit is reached. After 4011 and 4013 nothing was taken. */
CACHEFILE_API int32_t cachefile_writer_write(cachefile_writer* writer, uint32_t file,
                                             const void* data, uint32_t length, uint32_t offset);

/** Writes at the end of the file, as cachefile_writer_write with CACHEFILE_END. */
CACHEFILE_API int32_t cachefile_writer_append(cachefile_writer* writer, uint32_t file,
                                              const void* data, uint32_t length);

/** Limits the pending bytes of this writer as cachefile_set_pending_limit limits those of the
 * process. Returns 0, CACHEFILE_ERR_INVALID_ARG for a null writer, or
 * CACHEFILE_ERR_OUT_OF_MEMORY. */
CACHEFILE_API int32_t cachefile_writer_set_pending_limit(cachefile_writer* writer, uint64_t bytes);

/** Writes the gathered bytes. A failure is traced, counted in cachefile_lost_bytes, and in
 * asynchronous mode reported as CACHEFILE_OP_WRITE; the result is 0 even then. A number of no open
 * file is only traced. */
CACHEFILE_API int32_t cachefile_writer_flush(cachefile_writer* writer, uint32_t file);

/** Writes the gathered bytes and closes the file. On failure the file stays open; the host can try
 * again or destroy the writer. 4010: no such file, or the worker was stopped. If the open of the
 * file failed, its code is returned. In asynchronous mode 0 means that the close was queued, and
 * on_status reports a failure as CACHEFILE_OP_CLOSE. */
CACHEFILE_API int32_t cachefile_writer_close(cachefile_writer* writer, uint32_t file);

/** Writes the gathered bytes, and syncs the file, its name and its directories to the disk. In
 * synchronous mode it returns the result. In asynchronous mode 0 means that the sync is queued, and
 * on_synced (cachefile_writer_set_safety) reports the result; without that function only a failure
 * is reported, as CACHEFILE_OP_WRITE. 4003, 4006: a write or the sync failed; after a failed sync
 * the bytes since the last successful one count as lost. 4010: no such file, or the worker was
 * stopped. */
CACHEFILE_API int32_t cachefile_writer_sync(cachefile_writer* writer, uint32_t file);

/** A place of a file where bytes are missing. If in_place is 0, an append of length bytes failed
 * there, and the next append began at offset. Otherwise a write at an offset or a sync failed, and
 * the file may have the old bytes there or the new ones. */
typedef struct cachefile_hole {
    uint64_t offset;
    uint64_t length;
    int32_t in_place;
    int32_t reserved;
} cachefile_hole;

/** The lost, pending and unsynced bytes of an open file. */
typedef struct cachefile_losses {
    size_t struct_size;
    uint64_t lost;     /**< after the call that took them had succeeded */
    uint64_t pending;  /**< accepted and not yet written */
    uint64_t unsynced; /**< written and not yet synced */
    size_t holes;      /**< how many holes are known: 1,024 at most */
    int32_t all_holes; /**< 1 if the holes contain all lost bytes */
    int32_t reserved;
} cachefile_losses;

#define CACHEFILE_LOSSES_INIT \
    { sizeof(cachefile_losses), 0, 0, 0, 0, 0, 0 }

/** Fills losses, and fills holes with the first holes of the file, at most max_holes. They are
 * sorted by offset, and adjacent ones are merged. holes may be null if max_holes is 0. 4010: no
 * such file. */
CACHEFILE_API int32_t cachefile_writer_losses(cachefile_writer* writer, uint32_t file,
                                              cachefile_losses* losses, cachefile_hole* holes,
                                              size_t max_holes);

/** Reports the result of a cachefile_writer_sync that was queued. */
typedef void (*cachefile_on_synced)(void* user, uint32_t file, int32_t result);

/** Reports that the free space of the writer's file system is below the mark. It is called once,
 * and again only after the free space was at the mark or above it, or after the mark was set again.
 * In synchronous mode it is called inside a write. */
typedef void (*cachefile_on_low_space)(void* user, uint64_t free_bytes);

/** Sets the two functions above and replaces earlier ones. A null function is not called.
 * low_space_mark is the mark in bytes; 0 means none. The free space is queried by writes, at most
 * once per second. */
CACHEFILE_API int32_t cachefile_writer_set_safety(cachefile_writer* writer,
                                                  cachefile_on_synced on_synced,
                                                  cachefile_on_low_space on_low_space,
                                                  uint64_t low_space_mark, void* user);

/** Returns the last result that was reported to on_status of this writer, which may be a success.
 * It is 0 before the first report. */
CACHEFILE_API int32_t cachefile_writer_status(const cachefile_writer* writer);

/* ---- Player: reads one recording back ---- */

typedef struct cachefile_player cachefile_player;

/** Creates a player for the recording record_id. flags is 0 or a combination of CACHEFILE_ASYNC and
 * CACHEFILE_DOWNLOAD. callbacks may be null; without an on_data function only
 * cachefile_player_read_sync can read. */
CACHEFILE_API int32_t cachefile_player_create(uint32_t record_id, uint32_t flags,
                                              const cachefile_callbacks* callbacks,
                                              cachefile_player** player);

/** Closes the open files and frees the player. No callback of this player is called after this
 * function has begun. Reads that have not ended are discarded, and their buffers are not used any
 * more. A player created with CACHEFILE_DOWNLOAD and CACHEFILE_ASYNC also stops the worker thread
 * of the process after it has done everything that is queued; asynchronous files of other handles
 * return 4010 afterwards. player may be null. */
CACHEFILE_API void cachefile_player_destroy(cachefile_player* player);

/** As cachefile_writer_set_dir. */
CACHEFILE_API int32_t cachefile_player_set_dir(cachefile_player* player, const char* directory);

/** Opens the record file name in the player's directory; describer describes its contents. If
 * writable is not 0, the file is created or emptied, and cachefile_player_write can write to it. In
 * asynchronous mode 0 means that the open was queued; on_status reports how it ended.
 * 4010: a container is open. Others: as cachefile_writer_open. */
CACHEFILE_API int32_t cachefile_player_open_record(cachefile_player* player, const char* name,
                                                   const cachefile_describer* describer,
                                                   int32_t writable);

/** Opens a container and lists its streams. A player can do this once, even if it fails. In
 * asynchronous mode the call waits for the worker, and on_status is called later.
 * 4002: the file is not a container, or it is damaged. 4011: too many streams. In both cases the
 * streams before the damage are listed and can be read. 4008: the player has opened a container
 * before. 4010: the player was created without CACHEFILE_DOWNLOAD. */
CACHEFILE_API int32_t cachefile_player_open_container(cachefile_player* player, const char* path);

/** Returns the number of streams of the container, 0 if none is open. */
CACHEFILE_API size_t cachefile_player_stream_count(const cachefile_player* player);

/** Fills describer, whose struct_size the host has set, with the description of stream index, in
 * the order of the container's index. 4009: there is no such stream. */
CACHEFILE_API int32_t cachefile_player_get_stream(const cachefile_player* player, size_t index,
                                                  cachefile_describer* describer);

/** Sets length to the length of a stream of the open container. A read that goes past it continues
 * into the next stream. The first call walks the index again; in asynchronous mode the worker does
 * that and the call waits. Later calls take constant time. 4009: no such stream. 4010: no container
 * was opened, or the worker has ended. 4007: the container is closed. 4002, 4006: the index can no
 * longer be read. */
CACHEFILE_API int32_t cachefile_player_stream_length(cachefile_player* player,
                                                     const cachefile_data_info* info,
                                                     uint32_t* length);

/** Reads length bytes at offset of the data that info selects into buffer.
 *
 * If the result is 0, on_data is called once with request (any value of the host, may be null),
 * buffer and the number of bytes read. That number is less than length at the end of the file, and
 * 0 past the end or on failure. In synchronous mode on_data is called before this function returns.
 * In asynchronous mode it is called later, and after a failure on_status reports CACHEFILE_OP_READ.
 * If the result is not 0, on_data is not called.
 *
 * buffer must stay valid until on_data is called, this player is destroyed or the caller thread is
 * detached; after the latter two on_data is not called any more. The buffer is written only on the
 * driving thread, immediately before on_data. So a host that cancels a read need not wait: it
 * destroys the player and frees the buffer. (If the worker runs out of memory, a read can end
 * without on_data; the trace reports that.)
 *
 * The library allocates length bytes, reads into them and copies the result;
 * cachefile_player_read_alloc avoids the copy.
 * 4006, 4007: the file cannot be read. 4009: length is 0; the container has no such stream, or the
 * range ends after the container. 4010: no such file, or no on_data function. */
CACHEFILE_API int32_t cachefile_player_read(cachefile_player* player,
                                            const cachefile_data_info* info, void* buffer,
                                            uint32_t offset, uint32_t length, void* request);

/** As cachefile_player_read, but the library allocates the memory. on_data receives it as data,
 * which is never null. The host owns it and frees it with cachefile_free, in on_data or later. If
 * on_data is never called, the library frees it. */
CACHEFILE_API int32_t cachefile_player_read_alloc(cachefile_player* player,
                                                  const cachefile_data_info* info, uint32_t offset,
                                                  uint32_t length, void* request);

/** Reads into buffer before it returns, without a callback. read receives the number of bytes read,
 * 0 on failure. Record files can be read in either mode, in asynchronous mode after everything that
 * was queued before. Containers can be read in synchronous mode only; otherwise the result is 4010.
 * Other codes as cachefile_player_read. */
CACHEFILE_API int32_t cachefile_player_read_sync(cachefile_player* player,
                                                 const cachefile_data_info* info, void* buffer,
                                                 uint32_t offset, uint32_t length, uint32_t* read);

/** As cachefile_writer_write, for a file that was opened as writable. 4010: no such file, the file
 * was opened for reading, or a container is open. */
CACHEFILE_API int32_t cachefile_player_write(cachefile_player* player,
                                             const cachefile_data_info* info, const void* data,
                                             uint32_t length, uint32_t offset);

/** Closes all files of the player. Reads return 4007 afterwards. In asynchronous mode on_status
 * reports that code, after on_data with length 0. */
CACHEFILE_API int32_t cachefile_player_close_files(cachefile_player* player);

/** Return the CB time stamp and the file version of the recording: from the conf stream's header in
 * the container, or from the first block that this player wrote at offset 0. 0 until known. */
CACHEFILE_API uint32_t cachefile_player_cb_time_stamp(const cachefile_player* player);
CACHEFILE_API uint32_t cachefile_player_file_version(const cachefile_player* player);

/** Returns the last failure that was reported to on_status of this player, 0 if there was none. */
CACHEFILE_API int32_t cachefile_player_status(const cachefile_player* player);

/* ---- Packer: writes containers ---- */

typedef struct cachefile_packer cachefile_packer;

enum { CACHEFILE_INDEX_PACKED = 0, CACHEFILE_INDEX_CHAINED = 1 };

/** Creates a packer without streams. */
CACHEFILE_API int32_t cachefile_packer_create(cachefile_packer** packer);

/** Frees the packer and the copies of the bytes that were added. packer may be null. */
CACHEFILE_API void cachefile_packer_destroy(cachefile_packer* packer);

/** Selects the layout of the index: CACHEFILE_INDEX_PACKED (the default) or
 * CACHEFILE_INDEX_CHAINED. 4009: any other value. */
CACHEFILE_API int32_t cachefile_packer_set_index_type(cachefile_packer* packer,
                                                      uint32_t index_type);

/** Sets two fields of the header at the start of the conf stream (type 100, kind 2, id 100). If
 * there is no such stream, one is added that contains only the header. */
CACHEFILE_API int32_t cachefile_packer_set_header(cachefile_packer* packer, uint32_t file_version,
                                                  uint32_t cb_time_stamp);

/** Adds a stream with these bytes, which are copied. data may be null if length is 0.
 * 4009: a container cannot hold such a stream, the packer already has a stream with the same type,
 * id and kind, or it is a conf stream of fewer than 72 bytes. 4011: no memory, or more than
 * 1,048,576 streams. On failure nothing is added. */
CACHEFILE_API int32_t cachefile_packer_add_memory(cachefile_packer* packer,
                                                  const cachefile_describer* describer,
                                                  const void* data, uint32_t length);

/** Adds a stream whose bytes cachefile_packer_write reads from a file. Codes as
 * cachefile_packer_add_memory. A missing file is reported by cachefile_packer_write. */
CACHEFILE_API int32_t cachefile_packer_add_file(cachefile_packer* packer,
                                                const cachefile_describer* describer,
                                                const char* path);

/** As the two functions above, but with the tag, entry id and extra value that the index of the
 * container stores. 4009: an unknown tag. */
CACHEFILE_API int32_t cachefile_packer_add_tag_memory(cachefile_packer* packer, uint16_t tag,
                                                      uint32_t entry_id, uint32_t extra_info,
                                                      const void* data, uint32_t length);
CACHEFILE_API int32_t cachefile_packer_add_tag_file(cachefile_packer* packer, uint16_t tag,
                                                    uint32_t entry_id, uint32_t extra_info,
                                                    const char* path);

/** Writes the container to path and replaces an existing file. The directory must exist. The bytes
 * are first written to a new file in the same directory. It is renamed after all of them have
 * reached the disk, and removed on failure. Afterwards more streams may be added and written again.
 * 4009: it would be larger than 4 GiB - 1. 4010: no stream. 4001, 4003, 4004, 4006, 4012: a file
 * could not be read or written, or a source changed its size meanwhile. */
CACHEFILE_API int32_t cachefile_packer_write(cachefile_packer* packer, const char* path);

/** Reports how many of all bytes of the streams are written. Returns non-zero to continue and 0 to
 * cancel. It must not call the packer. */
typedef int32_t (*cachefile_progress)(void* user, uint64_t done, uint64_t total);

/** As cachefile_packer_write, and calls progress, which may be null, during the call: once for each
 * stream while the sizes are looked up (both numbers are 0 then), before the bytes of each stream,
 * after each 64 KiB and at the end of them, and before and after the sync of the file. It is not
 * called after the rename. If it returns 0, the new file is removed, an existing file stays, and
 * the result is 4010. */
CACHEFILE_API int32_t cachefile_packer_write_progress(cachefile_packer* packer, const char* path,
                                                      cachefile_progress progress, void* user);

/* ---- Index: lists the entries of a container ---- */

typedef struct cachefile_index cachefile_index;

/** How the walk of the index ended. */
typedef enum cachefile_walk {
    CACHEFILE_WALK_NONE = 0,     /**< no walk: no container, or it could not be read */
    CACHEFILE_WALK_COMPLETE = 1, /**< all entries were read */
    CACHEFILE_WALK_CUT_OFF = 2,  /**< the next entry is not completely in the file */
    CACHEFILE_WALK_CIRCLE = 3,   /**< the chain leads back to an earlier entry */
    CACHEFILE_WALK_TOO_MANY = 4  /**< there are more entries than a reader accepts */
} cachefile_walk;

/** The header of a container. */
typedef struct cachefile_container_header {
    size_t struct_size;
    uint32_t file_size; /**< as the header says */
    uint32_t must_be_zero;
    uint32_t entry_count; /**< as the header says */
    uint32_t index_type;  /**< CACHEFILE_INDEX_PACKED or CACHEFILE_INDEX_CHAINED */
} cachefile_container_header;

#define CACHEFILE_CONTAINER_HEADER_INIT \
    { sizeof(cachefile_container_header), 0, 0, 0, 0 }

/** One entry of the index. The last three fields are 0 if the tag is unknown. */
typedef struct cachefile_index_entry {
    size_t struct_size;
    uint32_t offset; /**< of the entry */
    uint32_t entry_id;
    uint32_t extra_info;
    uint32_t data_offset;
    uint32_t noted_length; /**< as the entry says; 0 can mean unknown */
    uint32_t next_offset;  /**< CACHEFILE_INDEX_CHAINED only */
    uint16_t tag;
    uint16_t data_type;
    uint32_t file_id;
    uint8_t file_kind;
    uint8_t reserved[7];
} cachefile_index_entry;

#define CACHEFILE_INDEX_ENTRY_INIT                                                           \
    {                                                                                        \
        sizeof(cachefile_index_entry), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, { 0, 0, 0, 0, 0, 0, 0 } \
    }

/** Creates an index without a container. */
CACHEFILE_API int32_t cachefile_index_create(cachefile_index** index);

/** Closes the container and frees the index. index may be null. */
CACHEFILE_API void cachefile_index_destroy(cachefile_index* index);

/** Opens the container path and walks its index. An index opens one container only. After a
 * failure, the entries that were read before it can be queried. 0: all entries were read, or the
 * chain leads back to an earlier entry. 4002: the file is not a container, or its index is cut off.
 * 4011: no memory, or too many entries. 4001, 4004, 4006: the file could not be opened or read. */
CACHEFILE_API int32_t cachefile_index_open(cachefile_index* index, const char* path);

/** Returns the size of the file. */
CACHEFILE_API uint64_t cachefile_index_file_size(const cachefile_index* index);

/** Fills header, whose struct_size the host has set, with the words of the header. All fields are 0
 * if the file has no header. */
CACHEFILE_API int32_t cachefile_index_get_header(const cachefile_index* index,
                                                 cachefile_container_header* header);

/** Returns how many entries the walk has read, including those with unknown tags. */
CACHEFILE_API size_t cachefile_index_entry_count(const cachefile_index* index);

/** Fills entry, whose struct_size the host has set, with the entry of this number, counted from 0
 * in the order of the walk. 4009: there is no such entry. */
CACHEFILE_API int32_t cachefile_index_get_entry(const cachefile_index* index, size_t number,
                                                cachefile_index_entry* entry);

/** Sets length to the length of the entry's stream, as cachefile_player_stream_length does. 4009:
 * there is no such entry. */
CACHEFILE_API int32_t cachefile_index_stream_length(const cachefile_index* index, size_t number,
                                                    uint32_t* length);

/** Return how the walk ended, a cachefile_walk, and the offset of the next entry. */
CACHEFILE_API int32_t cachefile_index_end_of_walk(const cachefile_index* index);
CACHEFILE_API uint64_t cachefile_index_end_offset(const cachefile_index* index);

/** Sets file_version and cb_time_stamp from the conf stream's header; either may be null. 4007:
 * there is no conf stream with a complete header. */
CACHEFILE_API int32_t cachefile_index_get_conf(const cachefile_index* index, uint32_t* file_version,
                                               uint32_t* cb_time_stamp);

/** Reads length bytes at offset of the file into buffer. read receives the number of bytes read,
 * which is less than length at the end of the file and 0 on failure. 4006: the file cannot be read.
 * 4007: the file is not open. */
CACHEFILE_API int32_t cachefile_index_read(cachefile_index* index, uint64_t offset, void* buffer,
                                           uint32_t length, uint32_t* read);

#ifdef __cplusplus
}
#endif

#endif
