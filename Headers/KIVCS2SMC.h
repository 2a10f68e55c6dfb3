/**
 * @file
 * Sensors: the keys of the system management controller, and from them fan speeds, temperatures of
 * processors and graphics, and power figures.
 *
 * The caller owns the record: `init` opens the connection and lists the keys, `free` closes it and may follow
 * a failed `init`. On a machine without the controller `init` fails. The operations that gather a status
 * succeed whatever keys the machine has: flags in the status mark the values that were read.
 *
 * A connection is used by one thread at a time; connections are independent of each other.
 *
 * @code
 * KIVCS2SMC controller;
 * KIVCS2SMCFanStatus fan;
 * if (KIVCS2_SUCCEEDED(kivCS2SMC_init(&controller)) &&
 *     KIVCS2_SUCCEEDED(kivCS2SMC_getFanStatus(&controller, 0, &fan)) &&
 *     (fan.m_flags & KIVCS2SMCFanFlags_Actual) != 0)
 *     printf("%.0f revolutions a minute\n", fan.m_actual);
 * kivCS2SMC_free(&controller); // also after a failed init
 * @endcode
 */
#ifndef KIVCS2_SMC_H
#define KIVCS2_SMC_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

/** Bytes that the text of a key or of a data type takes: four characters and a zero. */
#define KIVCS2_SMC_NAME_SIZE 5

/** Bytes of data that one response of the controller carries. */
#define KIVCS2_SMC_DATA_SIZE 32

/** Room for temperatures in a processor status. */
#define KIVCS2_SMC_MAX_CORES 32

/** The keys of one kind of processor's core temperatures. */
typedef struct KIVCS2SMCKeySet
{
    uint32_t m_count;          /**< names in `m_keys` */
    const char *const *m_keys; /**< `m_count` names of four characters */
} KIVCS2SMCKeySet;

/** An open controller. */
typedef struct KIVCS2SMC
{
    uint32_t m_connection;               /**< 0 when closed */
    uint32_t m_keyCount;                 /**< keys in `m_keys` */
    uint32_t *m_keys;                    /**< four-character codes, the first character in the top byte */
    const KIVCS2SMCKeySet *m_cpuTempSet; /**< constant; null if no known set fits the machine */
} KIVCS2SMC;

/** The values that a fan's status holds. */
typedef uint32_t KIVCS2SMCFanFlags;
enum
{
    KIVCS2SMCFanFlags_Actual = 1,
    KIVCS2SMCFanFlags_Minimum = 2,
    KIVCS2SMCFanFlags_Maximum = 4,
    KIVCS2SMCFanFlags_Safe = 8,
    KIVCS2SMCFanFlags_Target = 16,
    KIVCS2SMCFanFlags_Forced = 32 /**< `m_forced` was read */
};

/** One fan; speeds in revolutions per minute. */
typedef struct KIVCS2SMCFanStatus
{
    KIVCS2SMCFanFlags m_flags; /**< the values that were read */
    uint32_t m_forced;         /**< 1 if a program sets the speed, not the controller */
    float m_actual;            /**< the current speed */
    float m_minimum;           /**< the lowest speed */
    float m_maximum;           /**< the highest speed */
    float m_safe;              /**< the safe speed */
    float m_target;            /**< the speed aimed at */
} KIVCS2SMCFanStatus;

/** The values that a processor's status holds. */
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
    KIVCS2SMCCPUFlags m_flags;                       /**< the values that were read */
    uint32_t m_MSPC;                                 /**< value of the key "MSPC" */
    uint32_t m_MSTc;                                 /**< value of the key "MSTc" */
    uint32_t m_coreCount;                            /**< temperatures in `m_coreTemperatures` */
    double m_coreTemperatures[KIVCS2_SMC_MAX_CORES]; /**< degrees Celsius */
    double m_MSAc;                                   /**< value of the key "MSAc" */
} KIVCS2SMCCPUStatus;

/** The values that a graphics status holds. */
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
    KIVCS2SMCGPUFlags m_flags; /**< the values that were read */
    uint32_t m_MSTg;           /**< value of the key "MSTg" */
    double m_MSAg;             /**< value of the key "MSAg" */
    double m_TG0D;             /**< degrees Celsius, as are the next two */
    double m_TG0H;             /**< value of the key "TG0H" */
    double m_TG0P;             /**< value of the key "TG0P" */
} KIVCS2SMCGPUStatus;

/**
 * Opens the machine's controller, lists its keys and chooses the key set of the core temperatures: the first
 * known set whose keys all exist. A failure is printed on standard error; `free` releases what `init` has
 * made.
 * @retval KIVCS2STATUS_PARAM_ERR      `pSMC` is null
 * @retval KIVCS2STATUS_CONNECT_ERR    the machine's services cannot be queried
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  there is no controller, or it may not be opened; the record is zero
 * @retval KIVCS2STATUS_DATA_ERR       the controller does not respond: the record holds the connection and
 *                                     the keys listed so far, and 0 for the others
 * @retval KIVCS2STATUS_MEMORY_ERR     no room for the list, or more than 65536 keys; the record holds the
 *                                     connection
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2SMC_init(KIVCS2SMC *pSMC);

/**
 * Closes the connection, if there is one, releases the list and zeroes the record. A second call is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `pSMC` is null
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2SMC_free(KIVCS2SMC *pSMC);

/**
 * Stores how many keys the controller has.
 * @retval KIVCS2STATUS_PARAM_ERR  `pSMC` or `pKeys` is null
 * Thread safety: one thread at a time, as for all operations below.
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getNumberOfKeys(KIVCS2SMC *pSMC, uint32_t *pKeys);

/**
 * Stores the four characters of a key and a zero byte.
 * @param[in]  pSMC      an open controller
 * @param[in]  index     below the number of keys
 * @param[out] pKeyName  four characters and a zero byte
 * @param[in]  maxSize   of `pKeyName`, 5 or more
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null, `index` or `maxSize` is out of range
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getKeyName(KIVCS2SMC *pSMC, uint32_t index, char *pKeyName,
                                             uint32_t maxSize);

/**
 * Requests the type of a key, four characters such as "sp78", and the size of its data.
 * @param[in]  pSMC        an open controller
 * @param[in]  index       below the number of keys
 * @param[out] pDataType   four characters and a zero byte
 * @param[in]  maxSize     of `pDataType`, 5 or more
 * @param[out] pDataBytes  bytes, as the controller reports
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null, `index` or `maxSize` is out of range
 * @retval KIVCS2STATUS_DATA_ERR   the controller does not respond; nothing is stored
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getKeyDataInfo(KIVCS2SMC *pSMC, uint32_t index, char *pDataType,
                                                 uint32_t maxSize, uint32_t *pDataBytes);

/**
 * Requests `size` bytes of a key's data. A response has at most 32 bytes: the rest of `pData` is unchanged.
 * @param[in]  pSMC   an open controller
 * @param[in]  index  below the number of keys
 * @param[out] pData  room for `size` bytes
 * @param[in]  size   of `pData`; any value
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `index` is out of range
 * @retval KIVCS2STATUS_DATA_ERR   the controller does not respond; nothing is stored
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getKeyData(KIVCS2SMC *pSMC, uint32_t index, uint8_t *pData, uint32_t size);

/**
 * Stores the number of fans (key "FNum"), or its low 32 bits if it is longer.
 * @retval KIVCS2STATUS_PARAM_ERR      a pointer is null
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  there is no such key
 * @retval KIVCS2STATUS_DATA_ERR       the controller does not respond, or responds with more than 32 bytes
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getNumberOfFans(KIVCS2SMC *pSMC, uint32_t *pFans);

/**
 * Reads all values of a fan. A value that the machine does not report is 0 and its flag is clear.
 * @param[in]  pSMC     an open controller
 * @param[in]  fan      from 0; keys name fans by one digit, so from 10 on only the forced flag is known
 * @param[out] pStatus  speeds in revolutions per minute
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getFanStatus(KIVCS2SMC *pSMC, uint32_t fan, KIVCS2SMCFanStatus *pStatus);

/**
 * Reads the actual speed of a fan again into `pStatus`; the other members are unchanged. After a failure the
 * flag of the actual speed is clear.
 * @retval KIVCS2STATUS_PARAM_ERR      a pointer is null
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  there is no such fan
 * @retval KIVCS2STATUS_DATA_ERR       the controller does not respond, or responds with more than 32 bytes
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getFanCurrentSpeed(KIVCS2SMC *pSMC, uint32_t fan,
                                                     KIVCS2SMCFanStatus *pStatus);

/**
 * Reads the core temperatures, up to the first that cannot be read, and the processors' power figures. A
 * value that the machine does not report is 0 and its flag is clear.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getCPUStatus(KIVCS2SMC *pSMC, KIVCS2SMCCPUStatus *pStatus);

/**
 * Reads the temperatures and power figures of the graphics processor. A value that the machine does not
 * report is 0 and its flag is clear.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null
 */
KIVCS2_API KIVCS2Status kivCS2SMC_getGPUStatus(KIVCS2SMC *pSMC, KIVCS2SMCGPUStatus *pStatus);

/**
 * Stores degrees Celsius from the first two of `size` bytes, to a 64th of a degree. Both bytes are signed: a
 * second byte of 128 or more subtracts a degree.
 * @param[in]  pSMC          only checked for null, as in the three below
 * @param[in]  pData         data of a temperature key
 * @param[in]  size          bytes of `pData`, 2 or more
 * @param[out] pTemperature  degrees Celsius
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `size` is below 2
 * Thread safety: any thread, as for the three below.
 */
KIVCS2_API KIVCS2Status kivCS2SMC_interpretDataAsTemperature(KIVCS2SMC *pSMC, const uint8_t *pData,
                                                             uint32_t size, double *pTemperature);

/**
 * Stores the first two of `size` bytes as a number: the first byte, and 256ths in the second, both signed.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `size` is below 2
 */
KIVCS2_API KIVCS2Status kivCS2SMC_interpretDataAsFloatingPoint(KIVCS2SMC *pSMC, const uint8_t *pData,
                                                               uint32_t size, double *pDouble);

/**
 * Stores `size` bytes as a big-endian number; no bytes give 0.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `size` is above 4
 */
KIVCS2_API KIVCS2Status kivCS2SMC_interpretDataAsUnsignedInteger(KIVCS2SMC *pSMC, const uint8_t *pData,
                                                                 uint32_t size, uint32_t *pInteger);

/**
 * As the operation above: fewer than 4 bytes are not sign-extended, so FFh FFh is 65535.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `size` is above 4
 */
KIVCS2_API KIVCS2Status kivCS2SMC_interpretDataAsInteger(KIVCS2SMC *pSMC, const uint8_t *pData, uint32_t size,
                                                         int32_t *pInteger);

KIVCS2_END_DECLS

#endif
