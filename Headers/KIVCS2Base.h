/**
 * @file
 * The base of every module: the status table, the export macros, start-up, CRC-32, the growable memory block
 * and the conversion of absolute time to nanoseconds.
 *
 * A host calls kivCS2_init() or kivCS2_initWithTaskServer() once, on one thread, before any
 * other operation. Operations return a KIVCS2Status: KIVCS2STATUS_OK is 0 and every failure
 * has the top bit set, so test a status with KIVCS2_FAILED() and do not compare it with a list.
 *
 * The snippet at the top of each other header runs after this start-up.
 *
 * Argument checks come in two builds. With assertions, a failed check stops the process and
 * names the operation, the file, the line and the expression; with NDEBUG it returns the
 * documented status before anything is touched.
 *
 * @code
 * KIVCS2MemPtr block;
 * uint32_t crc;
 * kivCS2_initWithTaskServer(false); // before anything else, without the task server
 * if (KIVCS2_FAILED(kivCS2MemPtr_init(&block, 4096)))
 *     return 1;
 * memcpy(block.m_buffer, "123456789", 9);
 * block.m_used = 9; // the host's own count
 * kivCS2Utils_calcCRC32(block.m_buffer, block.m_used, &crc);
 * printf("%08X\n", crc); // prints: CBF43926
 * kivCS2MemPtr_free(&block);
 * @endcode
 */
#ifndef KIVCS2_BASE_H
#define KIVCS2_BASE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define KIVCS2_BEGIN_DECLS                                                                                   \
    extern "C"                                                                                               \
    {
#define KIVCS2_END_DECLS }
#else
#define KIVCS2_BEGIN_DECLS
#define KIVCS2_END_DECLS
#endif

/** Marks the exported operations; everything else is hidden. */
#define KIVCS2_API __attribute__((visibility("default")))

KIVCS2_BEGIN_DECLS

/** The result of an operation: 0 is success, the top bit marks every failure. */
typedef uint32_t KIVCS2Status;

/** True when `status` reports a failure. */
#define KIVCS2_FAILED(status) (((uint32_t)(status) >> 31) != 0u)
/** True when `status` reports success. */
#define KIVCS2_SUCCEEDED(status) (((uint32_t)(status) >> 31) == 0u)

#define KIVCS2STATUS_OK                 0x00000000u /**< success */
#define KIVCS2STATUS_ERR                0x80000000u /**< unspecified failure */
#define KIVCS2STATUS_PARAM_ERR          0x80000001u /**< null pointer or out-of-range argument */
#define KIVCS2STATUS_MEMORY_ERR         0x80000002u /**< an allocation failed */
#define KIVCS2STATUS_BUFFER_SIZE_ERR    0x80000003u /**< the caller's buffer is too small */
#define KIVCS2STATUS_DATA_ERR           0x80000004u /**< malformed input, or a platform call failed */
#define KIVCS2STATUS_NO_DATA_ERR        0x80000005u /**< nothing available to read */
#define KIVCS2STATUS_NOT_FOUND_ERR      0x80000006u /**< key, item, caption or sensor key not found */
#define KIVCS2STATUS_TIMEOUT_ERR        0x80000007u /**< timed out, or would block */
#define KIVCS2STATUS_FORMAT_ERR         0x80000008u /**< unexpected packet or caption format */
#define KIVCS2STATUS_EOF_ERR            0x80000009u /**< end of stream, or the peer closed */
#define KIVCS2STATUS_OVERFLOW_ERR       0x8000000au /**< no room to store the data */
#define KIVCS2STATUS_CAPTION_ERR        0x8000000bu /**< malformed caption line, or failed text conversion */
#define KIVCS2STATUS_HEADER_ERR         0x8000000cu /**< a caption file's header is malformed */
#define KIVCS2STATUS_FRAME_RATE_ERR     0x8000000du /**< frame-rate code unknown or not supported */
#define KIVCS2STATUS_WRITE_ERR          0x8000000eu /**< a write failed */
#define KIVCS2STATUS_READ_ERR           0x8000000fu /**< a read, seek or size query failed */
#define KIVCS2STATUS_OPEN_ERR           0x80000010u /**< opening a file or named pipe failed */
#define KIVCS2STATUS_UNSUPPORTED_ERR    0x80000011u /**< not supported by this object or input */
#define KIVCS2STATUS_NO_ENTRY_ERR       0x80000012u /**< multi-buffer entry not found */
#define KIVCS2STATUS_NO_BUFFER_ERR      0x80000013u /**< no multi-buffer available */
#define KIVCS2STATUS_MUTEX_ERR          0x80000014u /**< a mutex operation failed */
#define KIVCS2STATUS_MUTEX_BUSY_ERR     0x80000015u /**< the mutex is already locked (try-lock) */
#define KIVCS2STATUS_FIFO_ERR           0x80000016u /**< creating a named pipe failed */
#define KIVCS2STATUS_PIPE_ERR           0x80000017u /**< a pipe operation failed */
#define KIVCS2STATUS_PIXEL_FORMAT_ERR   0x80000018u /**< pixel format not supported */
#define KIVCS2STATUS_THREAD_ERR         0x80000019u /**< creating a thread failed */
#define KIVCS2STATUS_SEMAPHORE_ERR      0x8000001au /**< creating a semaphore failed */
#define KIVCS2STATUS_SEMAPHORE_BUSY_ERR 0x8000001bu /**< the semaphore would block (test-wait) */
#define KIVCS2STATUS_SYSTEM_ERR         0x8000001cu /**< a system call failed */
#define KIVCS2STATUS_STATE_ERR          0x8000001du /**< wrong state for the operation */
#define KIVCS2STATUS_CONNECT_ERR        0x8000001eu /**< connecting failed, or a device could not be opened */
#define KIVCS2STATUS_ADDRESS_ERR        0x8000001fu /**< address resolution failed */
#define KIVCS2STATUS_SOCKET_ERR         0x80000020u /**< a socket call failed */
#define KIVCS2STATUS_SOCKET_INVALID_ERR 0x80000021u /**< the socket is not open */
#define KIVCS2STATUS_CONNECTION_CLOSED_ERR                                                                   \
    0x80000022u /**< closed or reset by the peer, or ended by an EOT byte */
#define KIVCS2STATUS_MULTICAST_ADDRESS_ERR 0x80000023u /**< outside the multicast range 224-239 */
#define KIVCS2STATUS_BIND_ERR              0x80000024u /**< bind failed */
#define KIVCS2STATUS_BIND_ADDRESS_ERR      0x80000025u /**< no address to bind to */
#define KIVCS2STATUS_ACCEPT_ERR            0x80000026u /**< accept failed */
#define KIVCS2STATUS_PATH_ERR              0x80000027u /**< converting a resource path failed */
#define KIVCS2STATUS_NOT_LAUNCHABLE_ERR    0x80000028u /**< the executable cannot be launched */
#define KIVCS2STATUS_FORK_ERR              0x80000029u /**< fork or exec failed */
#define KIVCS2STATUS_NOT_PIPED_ERR         0x8000002au /**< the task's input or output is not piped */
#define KIVCS2STATUS_TASK_READ_ERR         0x8000002bu /**< reading the task's output failed */
#define KIVCS2STATUS_TASK_RUNNING_ERR      0x8000002cu /**< the task is running */
#define KIVCS2STATUS_TASK_NOT_RUNNING_ERR  0x8000002du /**< the task is not running */
#define KIVCS2STATUS_TASK_WRITE_ERR        0x8000002eu /**< writing the task's input failed */
#define KIVCS2STATUS_TASK_SERVER_ERR       0x8000002fu /**< the task server failed */
#define KIVCS2STATUS_INVALID_TIMECODE_ERR  0x80000030u /**< invalid, or names no frame of the current rate */
#define KIVCS2STATUS_VIDEO_FORMAT_ERR      0x80000031u /**< video format unknown */
#define KIVCS2STATUS_NODE_LOCKED_ERR       0x80000032u /**< a link-tree node, or one above it, is locked */
#define KIVCS2STATUS_NOT_WRITABLE_ERR      0x80000033u /**< the socket is not writable */

/** State of a byte-wise CRC-32: the table, and whether the lazy path has built it. */
typedef struct KIVCS2CRC32Param
{
    uint32_t m_tableBuilt; /**< non-zero once kivCSUtils_updateCRC32() has filled `m_table` itself */
    uint32_t m_table[256]; /**< reflected polynomial 0xEDB88320 (IEEE 802.3) */
} KIVCS2CRC32Param;

/** A growable heap block. The owner maintains `m_used`; the operations on the block only clear it. */
typedef struct KIVCS2MemPtr
{
    union
    {
        void *m_ptr;    /**< the block, or null */
        void *m_buffer; /**< the same member under its second name */
    };
    uint32_t m_allocated; /**< bytes the block holds */
    uint32_t m_used;      /**< the owner's count of bytes in use */
} KIVCS2MemPtr;

/**
 * Starts the library: makes the CRC-32 table ready, reads the Mach time base and, if `startTaskServer` is
 * true, forks the task server. From then on the library reaps every child of the host, and every child ends
 * with the host (KIVCS2TaskServer.h). A host that waits for its own children, also through system(), popen()
 * or a child watch of its event loop, must pass false: otherwise their statuses are lost. A server that does
 * not start is not reported: kivCS2TaskServer_exec() fails instead.
 * @retval KIVCS2STATUS_OK  always
 * Thread safety: once, on one thread, before any other operation.
 */
KIVCS2_API KIVCS2Status kivCS2_initWithTaskServer(bool startTaskServer);

/** The same as kivCS2_initWithTaskServer(true). It starts the task server, which not every host wants. */
KIVCS2_API KIVCS2Status kivCS2_init(void);

/** Fills `param->m_table`; ignores a null record. Leaves `m_tableBuilt` as it is. */
KIVCS2_API void kivCS2Utils_initCRC32Table(KIVCS2CRC32Param *param);

/**
 * Continues a CRC over `length` bytes and returns it. It does not invert: the caller seeds with 0xFFFFFFFF
 * and complements at the end. Builds the table of `_param` if its flag is 0. The table in the record decides
 * the result, so a caller may use its own polynomial.
 * The name has no "2" after "CS"; it is the exported one.
 * @param[in,out] _param  all zeros, or with a table
 * @param[in]     crc     0xFFFFFFFF, or the result so far
 * @param[in]     _data   `length` bytes
 * @param[in]     length  bytes
 * Thread safety: any thread once the table is built. Source: IEEE 802.3.
 */
KIVCS2_API uint32_t kivCSUtils_updateCRC32(KIVCS2CRC32Param *_param, uint32_t crc, const uint8_t *_data,
                                           uint32_t length);

/**
 * Stores the finished CRC-32 of `length` bytes: "123456789" gives 0xCBF43926, no bytes give 0.
 * @retval KIVCS2STATUS_PARAM_ERR  `data` or `crc` is null
 * Thread safety: any thread. Source: IEEE 802.3.
 */
KIVCS2_API KIVCS2Status kivCS2Utils_calcCRC32(const uint8_t *data, uint32_t length, uint32_t *crc);

/** Returns `size` zero-filled bytes of the system heap, to be released with free(); null if out of memory. */
KIVCS2_API void *kivCS2ZeroMalloc(size_t size);

/**
 * Makes a block of `size` bytes, but at least 4.
 * @retval KIVCS2STATUS_PARAM_ERR   `mem` is null (no assertion)
 * @retval KIVCS2STATUS_MEMORY_ERR  no room; the record is empty
 */
KIVCS2_API KIVCS2Status kivCS2MemPtr_init(KIVCS2MemPtr *mem, uint32_t size);

/**
 * Grows the block to `size` bytes; a block that is large enough stays as it is. The contents are
 * kept, new bytes are not cleared, `m_used` is untouched.
 * @retval KIVCS2STATUS_PARAM_ERR   `mem` is null (no assertion)
 * @retval KIVCS2STATUS_MEMORY_ERR  no room; the block and its size are unchanged
 */
KIVCS2_API KIVCS2Status kivCS2MemPtr_realloc(KIVCS2MemPtr *mem, uint32_t size);

/** As kivCS2MemPtr_realloc(), but to exactly `size` bytes: it shrinks too. */
KIVCS2_API KIVCS2Status kivCS2MemPtr_forceRealloc(KIVCS2MemPtr *mem, uint32_t size);

/**
 * Releases the block and clears the record, which may be initialised again; a second call is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `mem` is null (no assertion)
 */
KIVCS2_API KIVCS2Status kivCS2MemPtr_free(KIVCS2MemPtr *mem);

/**
 * Converts Mach absolute time to nanoseconds: multiplies by the numerator of the time base, then divides by
 * its denominator, in 64 bits; a product beyond 64 bits wraps. Start-up must have run.
 * Thread safety: any thread.
 */
KIVCS2_API uint64_t kivCS2AbsoluteToNanoseconds(uint64_t absoluteTime);

KIVCS2_END_DECLS

#endif
