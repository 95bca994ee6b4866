#include "simulator/CoreFoundation/dictionaries.hpp"

#include "simulator/CoreFoundation/descriptions.hpp"

#include <fmt/format.h>

namespace cf {

namespace {

__CFDictionary const & dictionary_of(object const & object) {
    return static_cast<__CFDictionary const &>(object);
}

void destroy_dictionary(object & object, doomed_objects & doomed) {
    static_cast<__CFDictionary &>(object).entries.release_all(doomed);
    destroy<__CFDictionary>(object, doomed);
}

bool equal_dictionaries(object const & left, object const & right) {
    return equal(dictionary_of(left).entries, dictionary_of(right).entries);
}

CFHashCode hash_dictionary(object const & object) {
    return dictionary_of(object).entries.count();
}

void describe_dictionary(object const & object, std::u16string & text) {
    auto const & dictionary = dictionary_of(object);
    auto const & entries = dictionary.entries;
    append_heading(text, object, "CFBasicHash");
    append_ascii(text, dictionary.is_mutable ? "{type = mutable dict" : "{type = immutable dict");
    append_ascii(text, ", count = " + std::to_string(entries.count()) + ",\nentries =>\n");
    int number = 0;
    entries.for_each([&](void const * key, void const * value) {
        append_ascii(text, fmt::format("\t{} : ", number++));
        entries.keys().describe(key, text);
        append_ascii(text, " = ");
        entries.values().describe(value, text);
        append_ascii(text, "\n");
    });
    append_ascii(text, "}\n");
}

__CFDictionary * create_dictionary(CFDictionaryKeyCallBacks const * keys,
                                   CFDictionaryValueCallBacks const * values, mutability wanted) {
    return create<__CFDictionary>(element_callbacks::from(keys), element_callbacks::from(values),
                                  wanted);
}

__CFDictionary * copy(__CFDictionary const & original, mutability wanted) {
    auto * const result =
        create<__CFDictionary>(original.entries.keys(), original.entries.values(), wanted);
    result->entries.copy_from(original.entries);
    return result;
}

void require_entry(hash_table const & entries, void const * key, void const * value,
                   char const * function) {
    entries.keys().require(key, function);
    entries.values().require(value, function);
}

} // namespace

CFMutableDictionaryRef create_object_dictionary(CFIndex room, mutability wanted) {
    auto * const dictionary =
        create<__CFDictionary>(object_callbacks(), object_callbacks(), wanted);
    dictionary->entries.reserve(room);
    return dictionary;
}

} // namespace cf

constinit cf::object_type const __CFDictionary::class_type{
    .id = 18,
    .name = "CFDictionary",
    .destroy = cf::destroy_dictionary,
    .equal = cf::equal_dictionaries,
    .hash = cf::hash_dictionary,
    .describe = cf::describe_dictionary,
};

CFTypeID CFDictionaryGetTypeID() {
    return __CFDictionary::class_type.id;
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, void const ** keys, void const ** values,
                                   CFIndex count, CFDictionaryKeyCallBacks const * key_callbacks,
                                   CFDictionaryValueCallBacks const * value_callbacks) {
    auto * const dictionary =
        cf::create_dictionary(key_callbacks, value_callbacks, cf::mutability::immutable);
    dictionary->entries.reserve(count);
    for (CFIndex i = 0; i < count; ++i) {
        cf::require_entry(dictionary->entries, keys[i], values[i], "CFDictionaryCreate");
        dictionary->entries.add(keys[i], values[i]);
    }
    return dictionary;
}

CFMutableDictionaryRef
CFDictionaryCreateMutable(CFAllocatorRef, CFIndex capacity,
                          CFDictionaryKeyCallBacks const * key_callbacks,
                          CFDictionaryValueCallBacks const * value_callbacks) {
    auto * const dictionary =
        cf::create_dictionary(key_callbacks, value_callbacks, cf::mutability::is_mutable);
    dictionary->entries.reserve(capacity);
    return dictionary;
}

CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef, CFDictionaryRef dictionary) {
    return cf::copy(cf::checked<__CFDictionary>(dictionary), cf::mutability::immutable);
}

CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef, CFIndex,
                                                     CFDictionaryRef dictionary) {
    return cf::copy(cf::checked<__CFDictionary>(dictionary), cf::mutability::is_mutable);
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
    return static_cast<CFIndex>(cf::checked<__CFDictionary>(dictionary).entries.count());
}

// Looking for null among objects is a fault unless the dictionary is empty.
void const * CFDictionaryGetValue(CFDictionaryRef dictionary, void const * key) {
    auto const & entries = cf::checked<__CFDictionary>(dictionary).entries;
    if (entries.count() > 0) {
        entries.keys().require(key, "CFDictionaryGetValue");
    }
    auto const * const found = entries.find(key);
    return found != nullptr ? found->value : nullptr;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, void const ** keys,
                                  void const ** values) {
    cf::checked<__CFDictionary>(dictionary)
        .entries.for_each([&](void const * key, void const * value) {
            if (keys != nullptr) {
                *keys++ = key;
            }
            if (values != nullptr) {
                *values++ = value;
            }
        });
}

void CFDictionaryApplyFunction(CFDictionaryRef dictionary, CFDictionaryApplierFunction applier,
                               void * context) {
    cf::checked<__CFDictionary>(dictionary)
        .entries.for_each(
            [&](void const * key, void const * value) { applier(key, value, context); });
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, void const * key, void const * value) {
    auto & checked = cf::checked(dictionary);
    if (!checked.is_mutable) {
        cf::trap("CFDictionarySetValue", "the dictionary is immutable");
    }
    cf::require_entry(checked.entries, key, value, "CFDictionarySetValue");
    checked.entries.set(key, value);
}
