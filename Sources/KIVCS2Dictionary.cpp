// Dictionaries: a system dictionary filled from C values.
#include "KIVCS2Dictionary.h"

#include "KIVCS2String.h"

#include "Private/Support/CFRef.h"
#include "Private/Support/Check.h"

// The checks that all setters make on their first two arguments.
#define KIV_CHECK_SETTER(dictionary, key)                                                                    \
    KIV_CHECK_AS((dictionary) != nullptr, "(dictionary) != NULL", KIVCS2STATUS_PARAM_ERR);                   \
    KIV_CHECK_AS((dictionary)->m_dictionary != nullptr, "(dictionary->m_dictionary) != NULL",                \
                 KIVCS2STATUS_PARAM_ERR);                                                                   \
    KIV_CHECK_AS((key) != nullptr, "(key) != NULL", KIVCS2STATUS_PARAM_ERR)

namespace
{
[[nodiscard]] KIVCS2Status convert(const char *text, kiv::CFRef<CFStringRef> &string)
{
    CFStringRef made = nullptr;
    KIV_TRY(kivCS2String_createCFStringWithEncoding(text, KIVCS2_STRING_MEASURE, &made,
                                                    KIVCS2StringEncoding_ASCII));
    string = kiv::CFRef<CFStringRef>{made};
    return KIVCS2STATUS_OK;
}

[[nodiscard]] KIVCS2Status store(CFMutableDictionaryRef dictionary, const void *key, CFTypeRef value)
{
    const void *const before = CFDictionaryGetValue(dictionary, key);
    CFDictionarySetValue(dictionary, key, value);
    // The call returns no result. The dictionary's own callbacks may keep a copy of the value.
    const void *const stored = CFDictionaryGetValue(dictionary, key);
    return stored == value || stored != before ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR;
}

[[nodiscard]] KIVCS2Status storeUnder(const KIVCS2Dictionary &dictionary, const void *key, CFTypeRef value,
                                      KIVCS2DictionaryKey keyKind)
{
    if (keyKind != KIVCS2DictionaryKey_CString)
        return store(dictionary.m_dictionary, key, value);
    kiv::CFRef<CFStringRef> string;
    KIV_TRY(convert(static_cast<const char *>(key), string));
    return store(dictionary.m_dictionary, string.get(), value);
}

template <class T>
[[nodiscard]] KIVCS2Status storeNumber(const KIVCS2Dictionary &dictionary, const void *key, CFNumberType type,
                                       T value, KIVCS2DictionaryKey keyKind)
{
    const kiv::CFRef<CFNumberRef> number{CFNumberCreate(kCFAllocatorDefault, type, &value)};
    if (!number)
        return KIVCS2STATUS_MEMORY_ERR;
    return storeUnder(dictionary, key, number.get(), keyKind);
}
} // namespace

KIVCS2Status kivCS2Dictionary_init(KIVCS2Dictionary *dictionary)
{
    KIV_CHECK_AS(dictionary != nullptr, "(dictionary) != NULL", KIVCS2STATUS_PARAM_ERR);

    dictionary->m_dictionary = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    return dictionary->m_dictionary != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR;
}

KIVCS2Status kivCS2Dictionary_initWithCFDictionary(CFDictionaryRef cfDictionary, KIVCS2Dictionary *dictionary)
{
    KIV_CHECK_AS(cfDictionary != nullptr, "(cfDictionary) != NULL", KIVCS2STATUS_PARAM_ERR);
    KIV_CHECK_AS(dictionary != nullptr, "(dictionary) != NULL", KIVCS2STATUS_PARAM_ERR);

    CFRetain(cfDictionary);
    // The system cannot report whether it is mutable; an immutable dictionary takes no values.
    dictionary->m_dictionary = const_cast<CFMutableDictionaryRef>(cfDictionary);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Dictionary_free(KIVCS2Dictionary *dictionary)
{
    KIV_CHECK_AS(dictionary != nullptr, "(dictionary) != NULL", KIVCS2STATUS_PARAM_ERR);

    const kiv::CFRef<CFMutableDictionaryRef> owned{std::exchange(dictionary->m_dictionary, nullptr)};
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Dictionary_setCFValue(KIVCS2Dictionary *dictionary, const void *key, CFTypeRef value,
                                         KIVCS2DictionaryKey keyKind)
{
    KIV_CHECK_SETTER(dictionary, key);
    KIV_CHECK_AS(value != nullptr, "(value) != NULL", KIVCS2STATUS_PARAM_ERR);

    return storeUnder(*dictionary, key, value, keyKind);
}

KIVCS2Status kivCS2Dictionary_setInteger(KIVCS2Dictionary *dictionary, const void *key, int32_t value,
                                         KIVCS2DictionaryKey keyKind)
{
    KIV_CHECK_SETTER(dictionary, key);

    return storeNumber(*dictionary, key, kCFNumberSInt32Type, value, keyKind);
}

KIVCS2Status kivCS2Dictionary_setFloat(KIVCS2Dictionary *dictionary, const void *key, float value,
                                       KIVCS2DictionaryKey keyKind)
{
    KIV_CHECK_SETTER(dictionary, key);

    return storeNumber(*dictionary, key, kCFNumberFloat32Type, value, keyKind);
}

KIVCS2Status kivCS2Dictionary_setBool(KIVCS2Dictionary *dictionary, const void *key, uint32_t value,
                                      KIVCS2DictionaryKey keyKind)
{
    KIV_CHECK_SETTER(dictionary, key);

    // Kept: a number, not a truth value, and only of the low 8 bits; JSON has a text only for numbers.
    return storeNumber(*dictionary, key, kCFNumberSInt8Type, static_cast<int8_t>(value), keyKind);
}

KIVCS2Status kivCS2Dictionary_setCString(KIVCS2Dictionary *dictionary, const void *key, const char *value,
                                         KIVCS2DictionaryKey keyKind)
{
    KIV_CHECK_SETTER(dictionary, key);
    KIV_CHECK_AS(value != nullptr, "(value) != NULL", KIVCS2STATUS_PARAM_ERR);

    kiv::CFRef<CFStringRef> string;
    KIV_TRY(convert(value, string));
    return storeUnder(*dictionary, key, string.get(), keyKind);
}
