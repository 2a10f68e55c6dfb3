/**
 * @file
 * Sensors: the keys of the system management controller, and from them fan speeds, temperatures of
 * processors and graphics, and power figures.
 *
 * The caller owns the record: `init` opens the connection and lists the keys, `free` closes it and may
 * follow an `init` that failed. A machine without the controller fails at `init`. The operations that
 * gather a status succeed whatever keys the machine has: a flag of the status tells each value that was read.
 *
 * A connection is used by one thread at a time; connections are independent of each other.
 */
#ifndef KIVCS2_SMC_H
#define KIVCS2_SMC_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

/** Bytes that the text of a key or of a data type takes: four characters and a zero. */
#define KIVCS2_SMC_NAME_SIZE 5

/** Bytes of data that one answer of the controller carries. */
#define KIVCS2_SMC_DATA_SIZE 32

/** Temperatures a processor status has room for. */
#define KIVCS2_SMC_MAX_CORES 32

/** The keys of one kind of processor's core temperatures. */
typedef struct KIVCS2SMCKeySet
{
    uint32_t m_count;
    const char *const *m_keys; /**< `m_count` names of four characters */
} KIVCS2SMCKeySet;

/** An open controller. */
typedef struct KIVCS2SMC
{
    uint32_t m_connection;               /**< 0 when closed */
    uint32_t m_keyCount;                 /**< keys in `m_keys` */
    uint32_t *m_keys;                    /**< four-character codes, the first character in the top byte */
    const KIVCS2SMCKeySet *m_cpuTempSet; /**< constant; null when the machine has none of the known sets */
} KIVCS2SMC;

/** What a fan's status holds. */
typedef uint32_t KIVCS2SMCFanFlags;
enum
{
    KIVCS2SMCFanFlags_Actual = 1,
    KIVCS2SMCFanFlags_Minimum = 2,
    KIVCS2SMCFanFlags_Maximum = 4,
    KIVCS2SMCFanFlags_Safe = 8,
    KIVCS2SMCFanFlags_Target = 16,
    KIVCS2SMCFanFlags_Forced = 32 /**< it was read whether the fan is forced */
};

/** One fan; speeds in turns a minute. */
typedef struct KIVCS2SMCFanStatus
{
    KIVCS2SMCFanFlags m_flags;
    uint32_t m_forced; /**< 1 when the speed is set by a program, not by the controller */
    float m_actual;
    float m_minimum;
    float m_maximum;
    float m_safe;
    float m_target;
} KIVCS2SMCFanStatus;

/** What a processor's status holds. */
typedef uint32_t KIVCS2SMCCPUFlags;
enum
{
    KIVCS2SMCCPUFlags_MSPC = 1,
    KIVCS2SMCCPUFlags_MSTc = 2,
    KIVCS2SMCCPUFlags_MSAc = 4,
    KIVCS2SMCCPUFlags_Cores = 8 /**< the temperature of every core */
};

/** The processors; the values of MSPC and MSTc are signed bytes widened to 32 bits. */
typedef struct KIVCS2SMCCPUStatus
{
    KIVCS2SMCCPUFlags m_flags;
    uint32_t m_MSPC;
    uint32_t m_MSTc;
    uint32_t m_coreCount;
    double m_coreTemperatures[KIVCS2_SMC_MAX_CORES]; /**< degrees Celsius */
    double m_MSAc;
} KIVCS2SMCCPUStatus;

/** What a graphics status holds. */
typedef uint32_t KIVCS2SMCGPUFlags;
enum
{
    KIVCS2SMCGPUFlags_MSTgOrMSAg = 1, /**< one of the two, or both */
    KIVCS2SMCGPUFlags_TG0D = 4,
    KIVCS2SMCGPUFlags_TG0H = 8,
    KIVCS2SMCGPUFlags_TG0P = 16
};

/** The graphics processor; the value of MSTg is a signed byte widened to 32 bits. */
typedef struct KIVCS2SMCGPUStatus
{
    KIVCS2SMCGPUFlags m_flags;
    uint32_t m_MSTg;
    double m_MSAg;
    double m_TG0D; /**< degrees Celsius, as the next two */
    double m_TG0H;
    double m_TG0P;
} KIVCS2SMCGPUStatus;

/**
 * Opens the machine's controller, lists its keys and chooses the key set of the core temperatures: the first
 * known one whose keys are all there. A failure is told on standard error; `free` releases what it leaves.
 * @retval KIVCS2STATUS_PARAM_ERR      `pSMC` is null
 * @retval KIVCS2STATUS_CONNECT_ERR    the machine's services cannot be asked for
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  there is no controller, or it may not be opened; the record is zero
 * @retval KIVCS2STATUS_DATA_ERR       the controller does not answer: the connection stays in the record, and
 *                                     so do the keys that were listed, those that were not being 0
 * @retval KIVCS2STATUS_MEMORY_ERR     no room for the list, or more than 65536 keys; the connection stays in
 *                                     the record
 * Thread safety: the owner alone.
 */
KIVCS2_API KIVCS2Status kivCS2SMC_init(KIVCS2SMC *pSMC);

/**
 * Closes the connection, if there is one, releases the list and zeroes the record. Twice is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `pSMC` is null
 * Thread safety: the owner alone.
 */
KIVCS2_API KIVCS2Status kivCS2SMC_free(KIVCS2SMC *pSMC);

/**
 * Stores how many keys the controller has.
 * @retval KIVCS2STATUS_PARAM_ERR  `pSMC` or `pKeys` is null
 * Thread safety: one thread at a time, as everything below.
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getNumberOfKeys(KIVCS2SMC *pSMC, uint32_t *pKeys);

/**
 * Stores the four characters of a key and a zero byte.
 * @param[in] index    below the number of keys
 * @param[in] maxSize  of `pKeyName`, 5 or more
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null, `index` or `maxSize` is out of range
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getKeyName(KIVCS2SMC *pSMC, uint32_t index, char *pKeyName,
                                             uint32_t maxSize);

/**
 * Asks for the type of a key, four characters such as "sp78", and for the size of its data.
 * @param[in] index      below the number of keys
 * @param[in] maxSize    of `pDataType`, 5 or more
 * @param[out] pDataBytes  bytes, as the controller says
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null, `index` or `maxSize` is out of range
 * @retval KIVCS2STATUS_DATA_ERR   the controller does not answer; nothing is stored
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getKeyDataInfo(KIVCS2SMC *pSMC, uint32_t index, char *pDataType,
                                                 uint32_t maxSize, uint32_t *pDataBytes);

/**
 * Asks for `size` bytes of a key's data. An answer has 32 at most: what `pData` has room for beyond them
 * stays as it is.
 * @param[in] index  below the number of keys
 * @param[in] size   of `pData`; any
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `index` is out of range
 * @retval KIVCS2STATUS_DATA_ERR   the controller does not answer; nothing is stored
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getKeyData(KIVCS2SMC *pSMC, uint32_t index, uint8_t *pData, uint32_t size);

/**
 * Stores the number of fans (key "FNum"), the low 32 bits where it is longer.
 * @retval KIVCS2STATUS_PARAM_ERR      a pointer is null
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  there is no such key
 * @retval KIVCS2STATUS_DATA_ERR       the controller does not answer, or with more than 32 bytes
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getNumberOfFans(KIVCS2SMC *pSMC, uint32_t *pFans);

/**
 * Reads all there is to a fan. What the machine does not tell is 0 and its flag clear.
 * @param[in] fan  from 0; keys name fans by one digit, so that from 10 on there is nothing but the forced
 *                 flag
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getFanStatus(KIVCS2SMC *pSMC, uint32_t fan, KIVCS2SMCFanStatus *pStatus);

/**
 * Reads the actual speed of a fan anew into `pStatus`, where the rest stays as it is. The flag of the actual
 * speed is clear after a failure.
 * @retval KIVCS2STATUS_PARAM_ERR      a pointer is null
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  there is no such fan
 * @retval KIVCS2STATUS_DATA_ERR       the controller does not answer, or with more than 32 bytes
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getFanCurrentSpeed(KIVCS2SMC *pSMC, uint32_t fan,
                                                     KIVCS2SMCFanStatus *pStatus);

/**
 * Reads the core temperatures, up to the first that cannot be read, and the processors' power figures. What
 * the machine does not tell is 0 and its flag clear.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getCPUStatus(KIVCS2SMC *pSMC, KIVCS2SMCCPUStatus *pStatus);

/**
 * Reads the temperatures and power figures of the graphics processor. What the machine does not tell is 0 and
 * its flag clear.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getGPUStatus(KIVCS2SMC *pSMC, KIVCS2SMCGPUStatus *pStatus);

/**
 * Degrees Celsius of the first two of `size` bytes, to a 64th of a degree. Both bytes are signed: a second
 * byte of 128 or more takes a degree away.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `size` is below 2
 * Thread safety: any thread, as the three below.
 */
KIVCS2_API KIVCS2Status kivCS2SMC_interpretDataAsTemperature(KIVCS2SMC *pSMC, const uint8_t *pData,
                                                             uint32_t size, double *pTemperature);

/**
 * The first two of `size` bytes as a number: the first, and 256ths in the second, both signed.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `size` is below 2
 */
KIVCS2_API KIVCS2Status kivCS2SMC_interpretDataAsFloatingPoint(KIVCS2SMC *pSMC, const uint8_t *pData,
                                                               uint32_t size, double *pDouble);

/**
 * `size` bytes as a big-endian number; no bytes are 0.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `size` is above 4
 */
KIVCS2_API KIVCS2Status kivCS2SMC_interpretDataAsUnsignedInteger(KIVCS2SMC *pSMC, const uint8_t *pData,
                                                                 uint32_t size, uint32_t *pInteger);

/**
 * As the operation above: fewer than 4 bytes are not extended by their sign, so FFh FFh is 65535.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `size` is above 4
 */
KIVCS2_API KIVCS2Status kivCS2SMC_interpretDataAsInteger(KIVCS2SMC *pSMC, const uint8_t *pData, uint32_t size,
                                                         int32_t *pInteger);

KIVCS2_END_DECLS

#endif
