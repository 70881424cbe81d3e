#ifndef CACHEFILE_C_H
#define CACHEFILE_C_H

/** @file
 * The cache file library for hosts in C, and in any language that can call C.
 *
 * Plain C11, and C++ too. docs/c-interface.md has a quick start; examples/c has whole programs.
 *
 * Rules that hold for every function:
 *
 * - Results: A function that can fail returns an int32_t: CACHEFILE_OK (0) or a code of
 *   cachefile_result. When it fails, its out-parameters are left as they were unless its
 *   comment says otherwise. Any function that takes memory can return
 *   CACHEFILE_ERR_OUT_OF_MEMORY.
 * - Null arguments: A null pointer for a required argument gives CACHEFILE_ERR_INVALID_ARG, or
 *   0 where the function returns a value instead of a code. The destroy functions and
 *   cachefile_free accept null and do nothing. A comment says "may be null" where null is
 *   allowed.
 * - Handles: A handle is made by its create function and freed by its destroy function. Using
 *   it after that is an error that the library cannot detect.
 * - Ownership: What the caller passes in stays the caller's. Strings, structs and the bytes of
 *   a write are copied during the call. The buffer of cachefile_player_read is the one
 *   exception: it must stay valid until the read has ended (see there). What the library
 *   returns as a const pointer stays the library's.
 * - Structs: Each struct begins with struct_size. Start from its _INIT macro, or set
 *   struct_size to the struct's size and every other field to 0. Later versions add fields at
 *   the end only. A struct that is too small gives CACHEFILE_ERR_INVALID_ARG, and so does a
 *   reserved field that is not 0. A larger struct, from a later version of this header, is
 *   accepted if the fields that this library does not know are 0. A function that fills a
 *   struct sets only the fields that struct_size covers.
 * - Paths: Paths are UTF-8 in the form of the system: "recordings/7" on Linux, and either
 *   slash on Windows. A relative path starts at the current directory of the process. On Linux
 *   a path that contains a backslash gives CACHEFILE_ERR_INVALID_ARG, because the library
 *   cannot express it. On Windows the path of a container may hold any character; any other
 *   path must be expressible in the code page of the process (UTF-8, if the host's manifest
 *   says so), or the result is CACHEFILE_ERR_INVALID_ARG.
 * - Threads: One thread drives all writers and players of the process; if any of them is
 *   asynchronous, that is the thread that called cachefile_caller_attach. Callbacks run on
 *   this thread, inside a call of the host, and no lock is held. A packer or an index is for
 *   one thread at a time, which may be any thread. A comment says "any thread" where a
 *   function may be called at any time.
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
    CACHEFILE_ERR_BAD_CONTAINER = 4002, /**< the file is no container, or it is damaged */
    CACHEFILE_ERR_DISK_FULL = 4003,     /**< no space left on the device */
    CACHEFILE_ERR_ACCESS_DENIED = 4004, /**< permission denied */
    CACHEFILE_ERR_BAD_PATH = 4005,      /**< the path cannot be created */
    CACHEFILE_ERR_FAILED = 4006,        /**< the file operation failed for another reason */
    CACHEFILE_ERR_NOT_OPEN = 4007,      /**< the file is not open */
    CACHEFILE_ERR_ALREADY_OPEN = 4008,  /**< this player has opened a container already */
    CACHEFILE_ERR_INVALID_ARG = 4009,   /**< an argument is not acceptable */
    CACHEFILE_ERR_INVALID_STATE = 4010, /**< the state does not allow the operation */
    CACHEFILE_ERR_OUT_OF_MEMORY = 4011, /**< out of memory */
    CACHEFILE_ERR_WRITE_DENIED = 4012,  /**< permission denied for writing */
    CACHEFILE_ERR_TRY_AGAIN = 4013      /**< the limit of pending bytes is reached: try later */
} cachefile_result;

/** The library's name of a code, as the trace and the command line show it: "CACHE_ERR_DISK_FULL"
 * for 4003, and "unknown" for a number that is no code. Valid as long as the library. Any thread.
 */
CACHEFILE_API const char* cachefile_result_name(int32_t result);

/** What a code means, in a short lower-case phrase. Valid as long as the library. Any thread. */
CACHEFILE_API const char* cachefile_result_text(int32_t result);

/* ---- The process ---- */

/** The version of the library that the process has loaded, such as "1.2.3". It may be newer than
 * this header, whose version is in CACHEFILE_VERSION_MAJOR, _MINOR and _PATCH. Valid as long as the
 * library. Any thread. */
CACHEFILE_API const char* cachefile_version(void);

/** The same as one number, for comparisons with CACHEFILE_VERSION_NUMBER: 1.2.3 is 10203. Any
 * thread. */
CACHEFILE_API uint32_t cachefile_version_number(void);

/** Sets the home directory, below which each recording has a directory named by its number. Writers
 * and players that exist already keep theirs. It is "./kvr2" at first; "" is the current directory.
 * The thread that drives the handlers. */
CACHEFILE_API int32_t cachefile_set_home_dir(const char* directory);

/** How many bytes have been lost in this process after the call that took them had succeeded. It
 * only grows; 0 at the end of a recording means that everything was written. Any thread. */
CACHEFILE_API uint64_t cachefile_lost_bytes(void);

/** How many bytes of asynchronous files are accepted and not yet written, in the whole process. Any
 * thread. */
CACHEFILE_API uint64_t cachefile_pending_bytes(void);

/** Limits the pending bytes. A write that would exceed the limit takes nothing and returns
 * CACHEFILE_ERR_TRY_AGAIN, or CACHEFILE_ERR_OUT_OF_MEMORY if it is larger than the limit by itself.
 * Values below 65,536 count as 65,536; UINT64_MAX, the value at the start, means no limit. Any
 * thread. */
CACHEFILE_API void cachefile_set_pending_limit(uint64_t bytes);

/** Ends asynchronous mode: waits until the worker thread has written everything that was accepted,
 * ends it, and then runs the callbacks that are waiting, until none is left. Close or destroy the
 * handlers' files first. The thread that drives the handlers, also from a callback. Always 0.
 *
 * Call it before the process ends or the library is unloaded; on Windows, accepted bytes are lost
 * otherwise. A later asynchronous open starts a new worker. */
CACHEFILE_API int32_t cachefile_shutdown(void);

/** Frees memory that the library has handed out (cachefile_player_read_alloc). Any thread. */
CACHEFILE_API void cachefile_free(void* memory);

/* ---- Trace ---- */

typedef enum cachefile_trace_level {
    CACHEFILE_TRACE_ERROR = 0, /**< failures */
    CACHEFILE_TRACE_INFO = 20  /**< creation of handlers and files as well */
} cachefile_trace_level;

/** Receives one line without a line break. text is valid during the call only. Runs on the thread
 * that traces, which may be the worker, and on several threads at once. It must not wait for the
 * driving thread, and call nothing of the library but cachefile_set_trace. */
typedef void (*cachefile_trace_sink)(void* user, int32_t level, const char* text);

/** Installs sink for the lines up to level; null removes it. After it returns, no call of an
 * earlier sink is running on another thread, so what that sink used may be freed. Without a sink
 * nothing is formatted. On failure the earlier sink stays. Any thread. */
CACHEFILE_API int32_t cachefile_set_trace(cachefile_trace_sink sink, void* user, int32_t level);

/* ---- The caller thread: asynchronous mode ---- */

/** Makes the calling thread the caller thread, on which asynchronous handlers are driven and all
 * callbacks run. Repeated calls on the same thread nest. CACHEFILE_ERR_INVALID_STATE while another
 * thread is attached. */
CACHEFILE_API int32_t cachefile_caller_attach(void);

/** Undoes one attach. The last one ends it: callbacks that were waiting are dropped, files that are
 * still open report to nobody, the wake-up function is removed and the descriptor is closed. Bytes
 * that were accepted are still written. CACHEFILE_ERR_INVALID_STATE on any other thread. */
CACHEFILE_API int32_t cachefile_caller_detach(void);

/** 1 on the caller thread, 0 on any other. Any thread. */
CACHEFILE_API int32_t cachefile_caller_is_current(void);

/** Runs the callbacks that are waiting now, and returns without waiting for more. count, which may
 * be null, receives how many ran. May be called from a callback. CACHEFILE_ERR_INVALID_STATE on any
 * other thread, with a count of 0. */
CACHEFILE_API int32_t cachefile_caller_run_pending(uint32_t* count);

/** The same, but if nothing is waiting it first sleeps until something is, at most for this many
 * milliseconds. If nothing comes in time, it succeeds with a count of 0. */
CACHEFILE_API int32_t cachefile_caller_wait_and_run(uint32_t milliseconds, uint32_t* count);

/** Called when callbacks begin to wait where none did, on the thread that brought them, mostly the
 * worker. It must not wait for the caller thread and must not call the library. Its purpose is to
 * post a message to the host's own loop, which then calls cachefile_caller_run_pending. It may be
 * called once too often. */
typedef void (*cachefile_wake_up)(void* user);

/** Installs wake_up; null removes it. After it returns, no call of an earlier one is running on
 * another thread. If something is waiting already, wake_up is called before this returns.
 * CACHEFILE_ERR_INVALID_STATE on any other than the caller thread. */
CACHEFILE_API int32_t cachefile_caller_set_wake_up(cachefile_wake_up wake_up, void* user);

/** A descriptor for poll, select or epoll that is readable while anything waits. The host only
 * polls it; the library reads, writes and (at the last detach) closes it.
 * CACHEFILE_ERR_INVALID_STATE on any other than the caller thread, CACHEFILE_ERR_FAILED where the
 * system has no such descriptors (Windows), both with a descriptor of -1. */
CACHEFILE_API int32_t cachefile_caller_get_descriptor(int* descriptor);

/* ---- What data is, and how results come ---- */

/** Describes a record file, or a stream of a container. */
typedef struct cachefile_describer {
    size_t struct_size;
    uint32_t file_id;
    uint32_t extra_info; /**< the host's own; the library passes it on */
    uint16_t data_type;
    uint8_t file_kind; /**< a single bit: 1, 2 or 4 */
    uint8_t reserved[5];
} cachefile_describer;

#define CACHEFILE_DESCRIBER_INIT                                   \
    {                                                              \
        sizeof(cachefile_describer), 0, 0, 0, 0, { 0, 0, 0, 0, 0 } \
    }

/** Names the data that a request is about: the first file or stream with this type and id whose
 * kind is in the mask. */
typedef struct cachefile_data_info {
    size_t struct_size;
    uint32_t file_id;
    uint32_t data_length; /**< the host's own; comes back with the data */
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

/** The callbacks of a writer or a player. The struct is copied; user is passed to each call. A
 * function that is null is not called. */
typedef struct cachefile_callbacks {
    size_t struct_size;
    void* user;

    /** The outcome of an asynchronous operation: of every open, and of a close, read or write only
     * when it failed on the worker thread. A call that returned a code sends none. */
    void (*on_status)(void* user, int32_t operation, int32_t result);

    /** The end of a read of a player (see cachefile_player_read). length counts the bytes read.
     * info is a copy of the request's, valid during the call. */
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

/** As the offset of a write: the end of the file. */
#define CACHEFILE_END UINT32_C(0xFFFFFFFF)

/* ---- Writer: records the files of one recording ---- */

typedef struct cachefile_writer cachefile_writer;

/** Makes a writer for the recording record_id. Its files go into the directory record_id of the
 * home directory. callbacks may be null; flags is 0 or CACHEFILE_ASYNC. */
CACHEFILE_API int32_t cachefile_writer_create(uint32_t record_id, uint32_t flags,
                                              const cachefile_callbacks* callbacks,
                                              cachefile_writer** writer);

/** Closes what is open and frees the writer. From its start on no callback of this writer is
 * called; accepted bytes are still written. To hear of the last failures, close the files and call
 * cachefile_shutdown first. */
CACHEFILE_API void cachefile_writer_destroy(cachefile_writer* writer);

/** Replaces the directory of the writer for files opened from now on. "" is the current directory.
 */
CACHEFILE_API int32_t cachefile_writer_set_dir(cachefile_writer* writer, const char* directory);

/** Opens the file name in the writer's directory: missing directories are created, and an existing
 * file is emptied. file receives a number that names the file until it is closed; it is 0 on
 * failure. In asynchronous mode 0 means that the open was queued, and on_status reports its
 * outcome; writes need not wait for that.
 * 4001, 4003, 4004, 4006, 4012: why the file could not be opened. 4010: asynchronous mode without
 * an attached thread, or during a shutdown. */
CACHEFILE_API int32_t cachefile_writer_open(cachefile_writer* writer, const char* name,
                                            uint32_t* file);

/** Writes length bytes at offset (below 2^31), or at the end for CACHEFILE_END. An append usually
 * only gathers the bytes; a write at an offset first passes on what is gathered. data may be null
 * if length is 0. In asynchronous mode a later failure comes as CACHEFILE_OP_WRITE.
 * 4010: no such file, or the worker was stopped. 4003, 4006: a write that this call caused failed,
 * or the open of the file did. 4011: no memory, or more bytes than the limit of pending bytes.
 * 4013: the limit is reached. Nothing was taken in these two cases. */
CACHEFILE_API int32_t cachefile_writer_write(cachefile_writer* writer, uint32_t file,
                                             const void* data, uint32_t length, uint32_t offset);

/** Writes at the end of the file. */
CACHEFILE_API int32_t cachefile_writer_append(cachefile_writer* writer, uint32_t file,
                                              const void* data, uint32_t length);

/** Passes on what is gathered. A failure is traced, counted in cachefile_lost_bytes, and in
 * asynchronous mode reported as CACHEFILE_OP_WRITE; the result here is 0. A number that names no
 * file is only traced. */
CACHEFILE_API int32_t cachefile_writer_flush(cachefile_writer* writer, uint32_t file);

/** Passes on what is gathered and closes the file. On failure the file stays open, for another try
 * or for destroy. 4010: no such file, or the worker was stopped. If the open failed: its code. In
 * asynchronous mode 0 means that the close was queued, and a failure comes as
 * CACHEFILE_OP_CLOSE. */
CACHEFILE_API int32_t cachefile_writer_close(cachefile_writer* writer, uint32_t file);

/** The result of the last on_status of this writer, successes included; 0 before the first. */
CACHEFILE_API int32_t cachefile_writer_status(const cachefile_writer* writer);

/* ---- Player: reads one recording back ---- */

typedef struct cachefile_player cachefile_player;

/** Makes a player for the recording record_id. callbacks may be null; without an on_data function
 * only cachefile_player_read_sync reads. */
CACHEFILE_API int32_t cachefile_player_create(uint32_t record_id, uint32_t flags,
                                              const cachefile_callbacks* callbacks,
                                              cachefile_player** player);

/** Closes what is open and frees the player. From its start on no callback of this player is
 * called; reads that have not ended are dropped, and their buffers are not used any more. A player
 * made with CACHEFILE_DOWNLOAD and CACHEFILE_ASYNC also stops the worker thread of the process,
 * after everything queued was done: asynchronous files of other handlers get 4010 then. */
CACHEFILE_API void cachefile_player_destroy(cachefile_player* player);

/** As cachefile_writer_set_dir. */
CACHEFILE_API int32_t cachefile_player_set_dir(cachefile_player* player, const char* directory);

/** Opens the record file name in the player's directory; describer says what it holds. If writable
 * is not 0, the file is created or emptied, and cachefile_player_write can reach it. In
 * asynchronous mode 0 means that the open was queued, and on_status reports its outcome.
 * 4010: a container is open. Others: as cachefile_writer_open. */
CACHEFILE_API int32_t cachefile_player_open_record(cachefile_player* player, const char* name,
                                                   const cachefile_describer* describer,
                                                   int32_t writable);

/** Opens a container by its path and lists its streams; once for a player, successful or not. In
 * asynchronous mode it waits for the worker, and on_status follows.
 * 4002: no container, or a damaged one. 4011: too many streams. In both cases the streams before
 * the damage are listed and can be read. 4008: a second time. 4010: without CACHEFILE_DOWNLOAD. */
CACHEFILE_API int32_t cachefile_player_open_container(cachefile_player* player, const char* path);

/** How many streams the container has, 0 without one. */
CACHEFILE_API size_t cachefile_player_stream_count(const cachefile_player* player);

/** Fills describer, whose struct_size the host has set, with that of stream index, in the order of
 * the container's index. 4009: there is no such stream. */
CACHEFILE_API int32_t cachefile_player_get_stream(const cachefile_player* player, size_t index,
                                                  cachefile_describer* describer);

/** The length of a stream of the open container: a read that goes further runs into the next
 * stream. The first call walks the index a second time, in asynchronous mode on the worker, for
 * which it waits; later calls take constant time. 4009: no such stream. 4010: no container was
 * opened, or the worker has ended. 4007: it is closed. 4002, 4006: the index cannot be read any
 * more. */
CACHEFILE_API int32_t cachefile_player_stream_length(cachefile_player* player,
                                                     const cachefile_data_info* info,
                                                     uint32_t* length);

/** Reads length bytes at offset of what info names into buffer. After 0, on_data is called once,
 * with request (the host's own, may be null), buffer and the number of bytes read: fewer than
 * length at the end of the file, 0 after it or on failure. In synchronous mode it is called before
 * this returns; in asynchronous mode later, and a failure follows as CACHEFILE_OP_READ. After any
 * other result on_data is not called.
 *
 * buffer must stay valid until on_data is called, or until this player is destroyed or the caller
 * thread detached, after which on_data is not called any more. It is written only on the thread
 * that drives the player, just before on_data, and never after one of these three. So there is no
 * need to wait for a read that is to be given up: destroy the player and free the buffer. (If the
 * worker runs out of memory, a read can end without on_data; the trace reports that.)
 *
 * The library reads into memory of its own, as long as length says, and copies from there;
 * cachefile_player_read_alloc saves the copy.
 * 4006, 4007: the file cannot be read. 4009: length is 0; the container has no such stream, or the
 * range ends after the container. 4010: no such file, or no on_data function. */
CACHEFILE_API int32_t cachefile_player_read(cachefile_player* player,
                                            const cachefile_data_info* info, void* buffer,
                                            uint32_t offset, uint32_t length, void* request);

/** The same, but the library provides the memory. on_data receives it as data, never null, and owns
 * it: the host frees it with cachefile_free, during the call or at any time later. If on_data is
 * never called, the library frees it. */
CACHEFILE_API int32_t cachefile_player_read_alloc(cachefile_player* player,
                                                  const cachefile_data_info* info, uint32_t offset,
                                                  uint32_t length, void* request);

/** Reads into buffer before it returns; no callback follows. read receives the number of bytes
 * read, 0 on failure. Record files in either mode (in asynchronous mode after everything queued
 * before), containers in synchronous mode only: 4010 otherwise. Other codes as
 * cachefile_player_read. */
CACHEFILE_API int32_t cachefile_player_read_sync(cachefile_player* player,
                                                 const cachefile_data_info* info, void* buffer,
                                                 uint32_t offset, uint32_t length, uint32_t* read);

/** Writes to a file that was opened as writable; otherwise as cachefile_writer_write. 4010: no such
 * file, one opened for reading, or a container is open. */
CACHEFILE_API int32_t cachefile_player_write(cachefile_player* player,
                                             const cachefile_data_info* info, const void* data,
                                             uint32_t length, uint32_t offset);

/** Closes all files of the player. Reads return 4007 afterwards, in asynchronous mode through
 * on_status, after an on_data with length 0. */
CACHEFILE_API int32_t cachefile_player_close_files(cachefile_player* player);

/** The CB time stamp and the file version of the recording: from the header of the container, or
 * from the first block that this player wrote at offset 0. 0 until known. */
CACHEFILE_API uint32_t cachefile_player_cb_time_stamp(const cachefile_player* player);
CACHEFILE_API uint32_t cachefile_player_file_version(const cachefile_player* player);

/** The last failure that was reported to on_status of this player, else 0. */
CACHEFILE_API int32_t cachefile_player_status(const cachefile_player* player);

/* ---- Packer: writes containers ---- */

typedef struct cachefile_packer cachefile_packer;

enum { CACHEFILE_INDEX_PACKED = 0, CACHEFILE_INDEX_CHAINED = 1 };

CACHEFILE_API int32_t cachefile_packer_create(cachefile_packer** packer);
CACHEFILE_API void cachefile_packer_destroy(cachefile_packer* packer);

/** How the index is laid out: CACHEFILE_INDEX_PACKED (at first) or CACHEFILE_INDEX_CHAINED. 4009
 * for other values. */
CACHEFILE_API int32_t cachefile_packer_set_index_type(cachefile_packer* packer,
                                                      uint32_t index_type);

/** Sets the two fields in the header at the start of the conf stream (type 100, kind 2, id 100). If
 * there is no such stream, one is added that holds the header alone. */
CACHEFILE_API int32_t cachefile_packer_set_header(cachefile_packer* packer, uint32_t file_version,
                                                  uint32_t cb_time_stamp);

/** Adds a stream with these bytes, which are copied; data may be null if length is 0.
 * 4009: a container cannot hold such a stream, it has one with the same type, id and kind already,
 * or it is a conf stream of fewer than 72 bytes. 4011: no memory, or more than 1,048,576 streams.
 * Nothing is added then. */
CACHEFILE_API int32_t cachefile_packer_add_memory(cachefile_packer* packer,
                                                  const cachefile_describer* describer,
                                                  const void* data, uint32_t length);

/** Adds a stream whose bytes are those that the file has when cachefile_packer_write runs. Codes as
 * above; a file that is missing is reported by cachefile_packer_write. */
CACHEFILE_API int32_t cachefile_packer_add_file(cachefile_packer* packer,
                                                const cachefile_describer* describer,
                                                const char* path);

/** The same two with a tag, entry id and extra value, as the index of a container holds them. 4009
 * for an unknown tag. */
CACHEFILE_API int32_t cachefile_packer_add_tag_memory(cachefile_packer* packer, uint16_t tag,
                                                      uint32_t entry_id, uint32_t extra_info,
                                                      const void* data, uint32_t length);
CACHEFILE_API int32_t cachefile_packer_add_tag_file(cachefile_packer* packer, uint16_t tag,
                                                    uint32_t entry_id, uint32_t extra_info,
                                                    const char* path);

/** Writes the container to path in place of any file of that name. Its directory must exist. The
 * bytes first go to a new file beside it, which gets the name when all of them have reached the
 * disk, and which is removed on failure. More streams may be added, and written again, afterwards.
 * 4009: it would be larger than 4 GiB - 1. 4010: no stream. 4001, 4003, 4004, 4006, 4012: a file
 * could not be read or written, or a source changed its size meanwhile. */
CACHEFILE_API int32_t cachefile_packer_write(cachefile_packer* packer, const char* path);

/* ---- Index: shows what a container holds ---- */

typedef struct cachefile_index cachefile_index;

/** How the walk along the index ended. */
typedef enum cachefile_walk {
    CACHEFILE_WALK_NONE = 0,     /**< no walk: no container, or it could not be read */
    CACHEFILE_WALK_COMPLETE = 1, /**< all entries were read */
    CACHEFILE_WALK_CUT_OFF = 2,  /**< the next entry could not be read as a whole */
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
    uint32_t noted_length; /**< as the entry says; 0 means nothing */
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

CACHEFILE_API int32_t cachefile_index_create(cachefile_index** index);
CACHEFILE_API void cachefile_index_destroy(cachefile_index* index);

/** Opens the container path and walks its index; once for an index. After a failure, what was read
 * before it can be queried.
 * 0: the index is whole, or goes in a circle. 4002: no container, or its index is cut off. 4011: no
 * memory, or too many entries. 4001, 4004, 4006: the file could not be opened or read. */
CACHEFILE_API int32_t cachefile_index_open(cachefile_index* index, const char* path);

/** The size of the file itself. */
CACHEFILE_API uint64_t cachefile_index_file_size(const cachefile_index* index);

/** Fills header, whose struct_size the host has set. All fields are 0 if there is no header. */
CACHEFILE_API int32_t cachefile_index_get_header(const cachefile_index* index,
                                                 cachefile_container_header* header);

/** How many entries the walk has read, those of unknown tags included. */
CACHEFILE_API size_t cachefile_index_entry_count(const cachefile_index* index);

/** Fills entry, whose struct_size the host has set, with entry number, counted from 0 in the order
 * of the walk. 4009: there is no such entry. */
CACHEFILE_API int32_t cachefile_index_get_entry(const cachefile_index* index, size_t number,
                                                cachefile_index_entry* entry);

/** The length of the stream of entry number, as cachefile_player_stream_length gives it. 4009:
 * there is no such entry. */
CACHEFILE_API int32_t cachefile_index_stream_length(const cachefile_index* index, size_t number,
                                                    uint32_t* length);

/** How the walk ended, a cachefile_walk, and where the next entry would be. */
CACHEFILE_API int32_t cachefile_index_end_of_walk(const cachefile_index* index);
CACHEFILE_API uint64_t cachefile_index_end_offset(const cachefile_index* index);

/** File version and CB time stamp of the conf stream's header; either may be null. 4007: there is
 * no conf stream with a whole header. */
CACHEFILE_API int32_t cachefile_index_get_conf(const cachefile_index* index, uint32_t* file_version,
                                               uint32_t* cb_time_stamp);

/** Reads length bytes at offset of the file into buffer; read receives the number of bytes read,
 * fewer than length at the end of the file and 0 on failure. 4006: it cannot be read. 4007: the
 * file is not open. */
CACHEFILE_API int32_t cachefile_index_read(cachefile_index* index, uint64_t offset, void* buffer,
                                           uint32_t length, uint32_t* read);

#ifdef __cplusplus
}
#endif

#endif
