// The part of CoreFoundation that this project calls, declared as its C interface is publicly
// documented. A function with Create or Copy in its name returns a reference that the caller
// releases; one with Get returns a borrowed one.
#pragma once

#include <stddef.h>
#include <stdint.h>

#if !defined(_WIN32)
#define CF_EXPORT extern
#elif defined(QNRESCUE_BUILDING_COREFOUNDATION)
#define CF_EXPORT extern __declspec(dllexport)
#else
#define CF_EXPORT extern __declspec(dllimport)
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef int32_t SInt32;
typedef uint32_t UInt32;
typedef uint16_t UniChar;

typedef intptr_t CFIndex;
typedef uintptr_t CFTypeID;
typedef uintptr_t CFOptionFlags;
typedef uintptr_t CFHashCode;
typedef UInt32 CFStringEncoding;
typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime; // seconds since 2001-01-01T00:00:00Z
typedef CFOptionFlags CFStringCompareFlags;
typedef CFIndex CFNumberType;
typedef CFIndex CFPropertyListFormat;

typedef struct {
    CFIndex location;
    CFIndex length;
} CFRange;

typedef void const * CFTypeRef;
typedef CFTypeRef CFPropertyListRef;
typedef struct __CFAllocator const * CFAllocatorRef;
typedef struct __CFString const * CFStringRef;
typedef struct __CFString * CFMutableStringRef;
typedef struct __CFNumber const * CFNumberRef;
typedef struct __CFBoolean const * CFBooleanRef;
typedef struct __CFNull const * CFNullRef;
typedef struct __CFDate const * CFDateRef;
typedef struct __CFData const * CFDataRef;
typedef struct __CFData * CFMutableDataRef;
typedef struct __CFArray const * CFArrayRef;
typedef struct __CFArray * CFMutableArrayRef;
typedef struct __CFDictionary const * CFDictionaryRef;
typedef struct __CFDictionary * CFMutableDictionaryRef;
typedef struct __CFSet const * CFSetRef;
typedef struct __CFSet * CFMutableSetRef;
typedef struct __CFError * CFErrorRef;

enum { kCFNotFound = -1 };

enum {
    kCFStringEncodingMacRoman = 0,
    kCFStringEncodingUTF16 = 0x0100,
    kCFStringEncodingISOLatin1 = 0x0201,
    kCFStringEncodingASCII = 0x0600,
    kCFStringEncodingUTF8 = 0x08000100
};

enum { kCFCompareCaseInsensitive = 1, kCFCompareBackwards = 4, kCFCompareAnchored = 8 };

enum {
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
    kCFNumberCGFloatType = 16
};

enum {
    kCFPropertyListOpenStepFormat = 1,
    kCFPropertyListXMLFormat_v1_0 = 100,
    kCFPropertyListBinaryFormat_v1_0 = 200
};

enum {
    kCFPropertyListImmutable = 0,
    kCFPropertyListMutableContainers = 1,
    kCFPropertyListMutableContainersAndLeaves = 2
};

enum { kCFPropertyListReadCorruptError = 3840, kCFPropertyListWriteStreamError = 3851 };

// --- Callbacks of collections

typedef void const * (*CFCollectionRetainCallBack)(CFAllocatorRef allocator, void const * value);
typedef void (*CFCollectionReleaseCallBack)(CFAllocatorRef allocator, void const * value);
typedef CFStringRef (*CFCollectionCopyDescriptionCallBack)(void const * value);
typedef Boolean (*CFCollectionEqualCallBack)(void const * left, void const * right);
typedef CFHashCode (*CFCollectionHashCallBack)(void const * value);

typedef struct {
    CFIndex version;
    CFCollectionRetainCallBack retain;
    CFCollectionReleaseCallBack release;
    CFCollectionCopyDescriptionCallBack copyDescription;
    CFCollectionEqualCallBack equal;
} CFArrayCallBacks;

typedef struct {
    CFIndex version;
    CFCollectionRetainCallBack retain;
    CFCollectionReleaseCallBack release;
    CFCollectionCopyDescriptionCallBack copyDescription;
    CFCollectionEqualCallBack equal;
    CFCollectionHashCallBack hash;
} CFDictionaryKeyCallBacks;

typedef struct {
    CFIndex version;
    CFCollectionRetainCallBack retain;
    CFCollectionReleaseCallBack release;
    CFCollectionCopyDescriptionCallBack copyDescription;
    CFCollectionEqualCallBack equal;
} CFDictionaryValueCallBacks;

typedef struct {
    CFIndex version;
    CFCollectionRetainCallBack retain;
    CFCollectionReleaseCallBack release;
    CFCollectionCopyDescriptionCallBack copyDescription;
    CFCollectionEqualCallBack equal;
    CFCollectionHashCallBack hash;
} CFSetCallBacks;

typedef void (*CFArrayApplierFunction)(void const * value, void * context);
typedef void (*CFDictionaryApplierFunction)(void const * key, void const * value, void * context);
typedef void (*CFSetApplierFunction)(void const * value, void * context);

// --- Constants

CF_EXPORT CFAllocatorRef const kCFAllocatorDefault; // its value is null
CF_EXPORT CFAllocatorRef const kCFAllocatorNull;
CF_EXPORT CFBooleanRef const kCFBooleanTrue;
CF_EXPORT CFBooleanRef const kCFBooleanFalse;
CF_EXPORT CFNullRef const kCFNull;
CF_EXPORT CFArrayCallBacks const kCFTypeArrayCallBacks;
CF_EXPORT CFSetCallBacks const kCFTypeSetCallBacks;
CF_EXPORT CFDictionaryKeyCallBacks const kCFTypeDictionaryKeyCallBacks;
CF_EXPORT CFDictionaryValueCallBacks const kCFTypeDictionaryValueCallBacks;
CF_EXPORT CFStringRef const kCFErrorLocalizedDescriptionKey;
CF_EXPORT CFStringRef const kCFErrorLocalizedFailureReasonKey;

// --- Every object

CF_EXPORT CFTypeRef CFRetain(CFTypeRef object);
CF_EXPORT void CFRelease(CFTypeRef object);
CF_EXPORT CFIndex CFGetRetainCount(CFTypeRef object);
CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef object);
CF_EXPORT Boolean CFEqual(CFTypeRef left, CFTypeRef right);
CF_EXPORT CFHashCode CFHash(CFTypeRef object);
CF_EXPORT CFStringRef CFCopyDescription(CFTypeRef object);

// --- Strings

// Returns a constant object, one for each text, which is never destroyed.
CF_EXPORT CFStringRef __CFStringMakeConstantString(char const * text);
#define CFSTR(text) __CFStringMakeConstantString("" text "")

CF_EXPORT CFTypeID CFStringGetTypeID(void);
CF_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, UInt8 const * bytes,
                                              CFIndex length, CFStringEncoding encoding,
                                              Boolean isExternalRepresentation);
CF_EXPORT CFStringRef CFStringCreateCopy(CFAllocatorRef allocator, CFStringRef string);
CF_EXPORT CFIndex CFStringGetLength(CFStringRef string); // in UTF-16 code units
CF_EXPORT UniChar CFStringGetCharacterAtIndex(CFStringRef string, CFIndex index);
CF_EXPORT CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);
CF_EXPORT Boolean CFStringGetCString(CFStringRef string, char * buffer, CFIndex size,
                                     CFStringEncoding encoding);
CF_EXPORT CFRange CFStringFind(CFStringRef string, CFStringRef sought,
                               CFStringCompareFlags options);

// --- Numbers, booleans, the null object, dates

CF_EXPORT CFTypeID CFNumberGetTypeID(void);
CF_EXPORT CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type,
                                     void const * value);
CF_EXPORT CFNumberType CFNumberGetType(CFNumberRef number);
CF_EXPORT Boolean CFNumberIsFloatType(CFNumberRef number);
// Stores the converted value in any case and returns whether nothing was lost.
CF_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void * value);
CF_EXPORT CFTypeID CFBooleanGetTypeID(void);
CF_EXPORT Boolean CFBooleanGetValue(CFBooleanRef boolean);
CF_EXPORT CFTypeID CFNullGetTypeID(void);
CF_EXPORT CFTypeID CFDateGetTypeID(void);
CF_EXPORT CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime time);
CF_EXPORT CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date);

// --- Data

CF_EXPORT CFTypeID CFDataGetTypeID(void);
CF_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, UInt8 const * bytes, CFIndex length);
CF_EXPORT CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, UInt8 const * bytes,
                                                CFIndex length, CFAllocatorRef bytesDeallocator);
CF_EXPORT CFIndex CFDataGetLength(CFDataRef data);
CF_EXPORT UInt8 const * CFDataGetBytePtr(CFDataRef data);

// --- Collections

CF_EXPORT CFTypeID CFArrayGetTypeID(void);
CF_EXPORT CFArrayRef CFArrayCreate(CFAllocatorRef allocator, void const ** values, CFIndex count,
                                   CFArrayCallBacks const * callBacks);
CF_EXPORT CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 CFArrayCallBacks const * callBacks);
CF_EXPORT CFIndex CFArrayGetCount(CFArrayRef array);
CF_EXPORT void const * CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);
CF_EXPORT void CFArrayAppendValue(CFMutableArrayRef array, void const * value);
CF_EXPORT void CFArrayApplyFunction(CFArrayRef array, CFRange range, CFArrayApplierFunction applier,
                                    void * context);

CF_EXPORT CFTypeID CFDictionaryGetTypeID(void);
CF_EXPORT CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, void const ** keys,
                                             void const ** values, CFIndex count,
                                             CFDictionaryKeyCallBacks const * keyCallBacks,
                                             CFDictionaryValueCallBacks const * valueCallBacks);
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef allocator, CFIndex capacity, CFDictionaryKeyCallBacks const * keyCallBacks,
    CFDictionaryValueCallBacks const * valueCallBacks);
CF_EXPORT CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef allocator,
                                                 CFDictionaryRef dictionary);
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef allocator,
                                                               CFIndex capacity,
                                                               CFDictionaryRef dictionary);
CF_EXPORT CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
CF_EXPORT void const * CFDictionaryGetValue(CFDictionaryRef dictionary, void const * key);
CF_EXPORT void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, void const ** keys,
                                            void const ** values);
CF_EXPORT void CFDictionaryApplyFunction(CFDictionaryRef dictionary,
                                         CFDictionaryApplierFunction applier, void * context);
CF_EXPORT void CFDictionarySetValue(CFMutableDictionaryRef dictionary, void const * key,
                                    void const * value);

CF_EXPORT CFTypeID CFSetGetTypeID(void);
CF_EXPORT CFMutableSetRef CFSetCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                             CFSetCallBacks const * callBacks);
CF_EXPORT CFIndex CFSetGetCount(CFSetRef set);
CF_EXPORT void CFSetAddValue(CFMutableSetRef set, void const * value);
CF_EXPORT void CFSetGetValues(CFSetRef set, void const ** values);
CF_EXPORT void CFSetApplyFunction(CFSetRef set, CFSetApplierFunction applier, void * context);

// --- Errors

CF_EXPORT CFTypeID CFErrorGetTypeID(void);
CF_EXPORT CFErrorRef CFErrorCreate(CFAllocatorRef allocator, CFStringRef domain, CFIndex code,
                                   CFDictionaryRef userInfo);
CF_EXPORT CFStringRef CFErrorGetDomain(CFErrorRef error);
CF_EXPORT CFIndex CFErrorGetCode(CFErrorRef error);
CF_EXPORT CFDictionaryRef CFErrorCopyUserInfo(CFErrorRef error);
CF_EXPORT CFStringRef CFErrorCopyDescription(CFErrorRef error);
CF_EXPORT CFStringRef CFErrorCopyFailureReason(CFErrorRef error);

// --- Property lists

CF_EXPORT CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator, CFPropertyListRef value,
                                             CFPropertyListFormat format, CFOptionFlags options,
                                             CFErrorRef * error);
CF_EXPORT CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                                         CFOptionFlags options,
                                                         CFPropertyListFormat * format,
                                                         CFErrorRef * error);

#ifdef __cplusplus
}
#endif
