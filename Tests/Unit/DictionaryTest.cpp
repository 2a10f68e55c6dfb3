// Dictionaries: the values that setters store, kinds of keys, ownership.
#include <KIVCoreServices2/KIVCS2Dictionary.h>

#include "CFText.h"
#include "RequiredPointers.h"

#include <cstddef>

namespace
{
using kiv::test::fromBytes;
using kiv::test::StringRef;

static_assert(offsetof(KIVCS2Dictionary, m_dictionary) == 0 && sizeof(KIVCS2Dictionary) == sizeof(void *));

constexpr KIVCS2DictionaryKey kText = KIVCS2DictionaryKey_CString;

struct DictionaryTest : testing::Test
{
    DictionaryTest()
    {
        EXPECT_OK(kivCS2Dictionary_init(&record));
    }
    ~DictionaryTest() override
    {
        EXPECT_OK(kivCS2Dictionary_free(&record));
    }
    [[nodiscard]] CFTypeRef at(const char *key) const
    {
        return CFDictionaryGetValue(record.m_dictionary, fromBytes(key).get());
    }

    KIVCS2Dictionary record{};
};

template <class T>
void expectNumber(CFTypeRef object, CFNumberType type, T expected)
{
    ASSERT_NE(object, nullptr);
    ASSERT_EQ(CFGetTypeID(object), CFNumberGetTypeID());
    const auto number = static_cast<CFNumberRef>(object);
    EXPECT_EQ(CFNumberGetType(number), type);
    T value{};
    EXPECT_TRUE(CFNumberGetValue(number, type, &value));
    EXPECT_EQ(value, expected);
}
} // namespace

TEST_F(DictionaryTest, EachSetterStoresItsType)
{
    EXPECT_OK(kivCS2Dictionary_setInteger(&record, "i", -7, kText));
    EXPECT_OK(kivCS2Dictionary_setFloat(&record, "f", 1.25f, kText));
    EXPECT_OK(kivCS2Dictionary_setCString(&record, "s", "text", kText));
    EXPECT_OK(kivCS2Dictionary_setCString(&record, "empty", "", kText));
    EXPECT_OK(kivCS2Dictionary_setCFValue(&record, "o", kCFBooleanTrue, kText));
    expectNumber(at("i"), kCFNumberSInt32Type, int32_t{-7});
    expectNumber(at("f"), kCFNumberFloat32Type, 1.25f);
    EXPECT_EQ(kiv::test::utf8(static_cast<CFStringRef>(at("s"))), "text");
    EXPECT_EQ(kiv::test::utf8(static_cast<CFStringRef>(at("empty"))), "");
    EXPECT_EQ(at("o"), kCFBooleanTrue);

    EXPECT_OK(kivCS2Dictionary_setFloat(&record, "i", 2.0f, kText));
    expectNumber(at("i"), kCFNumberFloat32Type, 2.0f);
    EXPECT_EQ(CFDictionaryGetCount(record.m_dictionary), 5);
}

// Kept.
TEST_F(DictionaryTest, AFlagIsANumberOfItsLow8Bits)
{
    const std::pair<uint32_t, int8_t> kRows[] = {{0, 0}, {1, 1}, {256, 0}, {0x1ff, -1}};
    for (const auto &[flag, stored] : kRows)
    {
        EXPECT_OK(kivCS2Dictionary_setBool(&record, "b", flag, kText));
        expectNumber(at("b"), kCFNumberSInt8Type, stored);
    }
}

TEST_F(DictionaryTest, AnyKindButZeroIsAStringObject)
{
    const StringRef key = fromBytes("caf\xc3\xa9");
    for (const KIVCS2DictionaryKey kind : {KIVCS2DictionaryKey{KIVCS2DictionaryKey_CFString}, ~0u})
        EXPECT_OK(kivCS2Dictionary_setInteger(&record, key.get(), static_cast<int32_t>(kind), kind));
    expectNumber(at("caf\xc3\xa9"), kCFNumberSInt32Type, int32_t{-1});
    EXPECT_EQ(CFGetRetainCount(key.get()), 2);
}

TEST_F(DictionaryTest, TextsThatAreNotASCIIChangeNothing)
{
    EXPECT_EQ(kivCS2Dictionary_setInteger(&record, "caf\xc3\xa9", 1, kText), KIVCS2STATUS_MEMORY_ERR);
    EXPECT_EQ(kivCS2Dictionary_setCString(&record, "a", "caf\xc3\xa9", kText), KIVCS2STATUS_MEMORY_ERR);
    EXPECT_EQ(CFDictionaryGetCount(record.m_dictionary), 0);
}

TEST_F(DictionaryTest, SharesADictionaryWithItsOwner)
{
    KIVCS2Dictionary second{};
    ASSERT_OK(kivCS2Dictionary_initWithCFDictionary(record.m_dictionary, &second));
    EXPECT_EQ(CFGetRetainCount(record.m_dictionary), 2);
    EXPECT_OK(kivCS2Dictionary_setInteger(&second, "shared", 3, kText));
    EXPECT_OK(kivCS2Dictionary_free(&second));
    EXPECT_EQ(second.m_dictionary, nullptr);
    EXPECT_OK(kivCS2Dictionary_free(&second));
    expectNumber(at("shared"), kCFNumberSInt32Type, int32_t{3});

    const void *old = kCFBooleanTrue;
    const kiv::CFRef<CFDictionaryRef> fixed{CFDictionaryCreate(
        nullptr, &old, &old, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks)};
    ASSERT_OK(kivCS2Dictionary_initWithCFDictionary(fixed.get(), &second));
    for (const void *key : {old, static_cast<const void *>(kCFBooleanFalse)})
        EXPECT_EQ(kivCS2Dictionary_setInteger(&second, key, 3, KIVCS2DictionaryKey_CFString),
                  KIVCS2STATUS_MEMORY_ERR);
    EXPECT_OK(kivCS2Dictionary_free(&second));
}

TEST_F(DictionaryTest, ArgumentChecks)
{
    KIVCS2Dictionary empty{};
    const char *kInside = "(dictionary->m_dictionary) != NULL";
    KIV_REQUIRES_NOT_NULL(kivCS2Dictionary_setCFValue, "dictionary, key, value", &record, "k", kCFBooleanTrue,
                          kText);
    KIV_REQUIRES_NOT_NULL(kivCS2Dictionary_setInteger, "dictionary, key", &record, "k", 1, kText);
    KIV_REQUIRES_NOT_NULL(kivCS2Dictionary_setFloat, "dictionary, key", &record, "k", 1, kText);
    KIV_REQUIRES_NOT_NULL(kivCS2Dictionary_setBool, "dictionary, key", &record, "k", 1, kText);
    KIV_REQUIRES_NOT_NULL(kivCS2Dictionary_setCString, "dictionary, key, value", &record, "k", "v", kText);
    KIV_REQUIRES_NOT_NULL(kivCS2Dictionary_init, "dictionary");
    KIV_REQUIRES_NOT_NULL(kivCS2Dictionary_initWithCFDictionary, "cfDictionary, dictionary");
    KIV_REQUIRES_NOT_NULL(kivCS2Dictionary_free, "dictionary");
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2Dictionary_setCFValue, kInside, &empty, "k", kCFBooleanTrue, kText),
        KIV_REQUIRES(kivCS2Dictionary_setInteger, kInside, &empty, "k", 1, kText),
        KIV_REQUIRES(kivCS2Dictionary_setFloat, kInside, &empty, "k", 1, kText),
        KIV_REQUIRES(kivCS2Dictionary_setBool, kInside, &empty, "k", 1, kText),
        KIV_REQUIRES(kivCS2Dictionary_setCString, kInside, &empty, "k", "v", kText),
    });
    EXPECT_EQ(CFDictionaryGetCount(record.m_dictionary), 0);
}
