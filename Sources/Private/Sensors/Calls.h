// The calls behind the sensors: one struct method of the controller's service, and the values read with it.
#ifndef KIV_PRIVATE_SENSORS_CALLS_H
#define KIV_PRIVATE_SENSORS_CALLS_H

#include "KIVCS2SMC.h"

// The service's input and output; numbers are in the machine's byte order.
struct KIVCS2SMCKeyData
{
    uint32_t m_key; // packed, the first character in the top byte
    uint8_t m_versionMajor;
    uint8_t m_versionMinor;
    uint8_t m_versionBuild;
    uint8_t m_versionReserved;
    uint16_t m_versionRelease;
    uint16_t m_padding1;
    uint16_t m_limitVersion;
    uint16_t m_limitLength;
    uint32_t m_limitCPU;
    uint32_t m_limitGPU;
    uint32_t m_limitMemory;
    uint32_t m_dataSize;
    uint32_t m_dataType; // packed like the key
    uint8_t m_dataAttributes;
    uint8_t m_padding2[3];
    uint8_t m_result;
    uint8_t m_status;
    uint8_t m_command;
    uint8_t m_padding3;
    uint32_t m_argument;
    uint8_t m_data[KIVCS2_SMC_DATA_SIZE];
};

constexpr uint8_t kSMCReadData = 5;
constexpr uint8_t kSMCKeyAtIndex = 8;
constexpr uint8_t kSMCReadInfo = 9;

// A key and its value as read.
struct KIVCS2SMCKeyValue
{
    char m_key[KIVCS2_SMC_NAME_SIZE];
    uint32_t m_dataSize;
    char m_dataType[KIVCS2_SMC_NAME_SIZE];
    uint8_t m_data[KIVCS2_SMC_DATA_SIZE]; // zero past the bytes received
};

// Makes one call; KIVCS2STATUS_DATA_ERR if it fails.
KIVCS2Status kivCS2SMCPrv_call(KIVCS2SMC *pSMC, const KIVCS2SMCKeyData *pInputStructure,
                               KIVCS2SMCKeyData *pOutputStructure);

// KIVCS2STATUS_NOT_FOUND_ERR unless the key is listed; before there is a list, every key counts as listed.
KIVCS2Status kivCS2SMCPrv_hasKey(KIVCS2SMC *pSMC, uint32_t key);

// Reads a key's type, size and bytes, by its name of four characters; a name of another length is not found.
KIVCS2Status kivCS2SMCPrv_readKey(KIVCS2SMC *pSMC, const char *pKeyName, KIVCS2SMCKeyValue *pVal);

// Reads a key of type "sp78" in degrees Celsius; KIVCS2STATUS_STATE_ERR if its type differs or it has no
// data.
KIVCS2Status kivCS2SMCPrv_getTemperature(KIVCS2SMC *pSMC, const char *pKeyName, double *pTemperature);

#endif
