/**
 * @file
 * Information about the machine and this process: memory, system version, processors, name.
 *
 * There is no record and nothing to release; each operation queries the system again, and any thread may
 * call. The units are those that hosts have always read, even if a parameter's name states another unit: the
 * size of the memory is in bytes and cut to 32 bits, the clock is in hertz.
 *
 * @code
 * uint32_t cores, major, minor, bugfix;
 * if (KIVCS2_FAILED(kivCS2SystemInfo_getCPUCoreCount(&cores)) ||
 *     KIVCS2_FAILED(kivCS2SystemInfo_getSystemVersion(&major, &minor, &bugfix)))
 *     return 1;
 * printf("%u processors, system %u.%u.%u\n", cores, major, minor, bugfix);
 * @endcode
 */
#ifndef KIVCS2_SYSTEM_INFO_H
#define KIVCS2_SYSTEM_INFO_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

/**
 * Stores the low 32 bits of the size of the physical memory in bytes, not in megabytes: with 16 GiB that is
 * 0. Physical memory is what the kernel manages ("MemTotal"), less than the installed memory. 0 if the system
 * does not report it.
 * @retval KIVCS2STATUS_PARAM_ERR  `_ramSizeMB` is null
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2SystemInfo_getPhysicalRAMSize(uint32_t *_ramSizeMB);

/**
 * Stores how the machine's memory is used and how much this process uses, all in bytes. Every output may be
 * null; values that are not requested are not looked up. Note the order: inactive comes before active.
 * @param[out] _free      unused ("MemFree")
 * @param[out] _inactive  taken first when memory runs short ("Inactive")
 * @param[out] _active    used recently ("Active")
 * @param[out] _wired     cannot be reclaimed ("Unevictable", "SUnreclaim", "KernelStack", "PageTables")
 * @param[out] _resident  of this process, in memory
 * @param[out] _virtual   of this process, mapped
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  the system does not report the values. Outputs from `_resident` on
 *                                       are untouched; all are untouched if the machine's memory is not
 *                                       reported
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2SystemInfo_getRAMUsage(uint64_t *_free, uint64_t *_inactive, uint64_t *_active,
                                                     uint64_t *_wired, uint64_t *_resident,
                                                     uint64_t *_virtual);

/**
 * Stores the version of the operating system, which is that of the distribution: "12" as 12, 0, 0. All are 0
 * if it has no version, as with rolling distributions.
 * @retval KIVCS2STATUS_PARAM_ERR  an output is null
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2SystemInfo_getSystemVersion(uint32_t *_major, uint32_t *_minor,
                                                          uint32_t *_bugfix);

/**
 * Stores the highest clock of the processors in hertz, not in megahertz: 0xFFFFFFFF from 4.29 GHz on, 0 if
 * the system does not report it.
 * @retval KIVCS2STATUS_PARAM_ERR  `_speedMHz` is null
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2SystemInfo_getClockSpeed(uint32_t *_speedMHz);

/**
 * Stores the number of processors that are online; each hardware thread counts.
 * @retval KIVCS2STATUS_PARAM_ERR  `_cores` is null
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2SystemInfo_getCPUCoreCount(uint32_t *_cores);

/**
 * Stores the machine's name in UTF-8 with its zero byte: the name meant for people ("PRETTY_HOSTNAME" of
 * machine-info), otherwise the host name. The whole buffer is set to zero first.
 * @param[out] _buffer      the name
 * @param[in]  _bufferSize  bytes of the buffer, not 0
 * @retval KIVCS2STATUS_PARAM_ERR        `_buffer` is null or `_bufferSize` is 0
 * @retval KIVCS2STATUS_DATA_ERR         the machine has no name; the buffer is zero
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  the name does not fit; the buffer is zero
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2SystemInfo_getMachineNameString(char *_buffer, uint32_t _bufferSize);

KIVCS2_END_DECLS

#endif
