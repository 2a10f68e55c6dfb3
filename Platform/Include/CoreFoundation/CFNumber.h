/**
 * @file
 * Numbers, immutable, and the two truth values. A number keeps the type it was created with.
 */
#ifndef KIV_CF_NUMBER_H
#define KIV_CF_NUMBER_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFBoolean *CFBooleanRef;
typedef const struct __CFNumber *CFNumberRef;

/** The only two objects of their kind; they live as long as the process, however often they are released. */
CF_EXPORT const CFBooleanRef kCFBooleanTrue;
CF_EXPORT const CFBooleanRef kCFBooleanFalse;

CF_EXPORT CFTypeID CFBooleanGetTypeID(void);
CF_EXPORT Boolean CFBooleanGetValue(CFBooleanRef boolean);

typedef CFIndex CFNumberType;
enum
{
    kCFNumberSInt8Type = 1,
    kCFNumberSInt16Type = 2,
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat32Type = 5,
    kCFNumberFloat64Type = 6,
    kCFNumberCharType = 7,
    kCFNumberShortType = 8,
    kCFNumberIntType = 9,
    kCFNumberLongType = 10,
    kCFNumberLongLongType = 11,
    kCFNumberFloatType = 12,
    kCFNumberDoubleType = 13,
    kCFNumberCFIndexType = 14,
    kCFNumberNSIntegerType = 15,
    kCFNumberCGFloatType = 16,
    kCFNumberMaxType = 16
};

CF_EXPORT CFTypeID CFNumberGetTypeID(void);

/** A number of `theType` read from `valuePtr`. NULL for an unknown type and without memory. */
CF_EXPORT CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType theType, const void *valuePtr);

/** The type it was created with. */
CF_EXPORT CFNumberType CFNumberGetType(CFNumberRef number);

/**
 * Stores the value as `theType`. False if something is lost: an integer out of the type's range
 * is cut to its low bits, a fraction is cut towards zero, a floating-point value out of range becomes the
 * nearest one (NaN becomes 0), and a double is rounded to float.
 */
CF_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void *valuePtr);

CF_EXTERN_C_END

#endif
