// Memory and bytes, as in the C standard and POSIX: malloc(3), bstring(3), string(3).

#include "guest.h"

// A header precedes every block. Free blocks are kept in one list per size: multiples of 16 up to
// 1024 bytes, powers of two above that.
struct block {
    uint64_t size;
    uint64_t state;
};

enum { kSmall = 64, kLists = kSmall + 48 };
static const uint64_t kUsed = 0x75736564626c6f63;
static const uint64_t kFree = 0x66726565626c6f63;

EXPORT char* heap_next;
EXPORT char* heap_end;
static struct block* free_blocks[kLists];

static unsigned list_of(uint64_t* size)
{
    if (*size <= 16 * kSmall) {
        *size = *size == 0 ? 16 : (*size + 15) & ~15ull;
        return (unsigned)(*size / 16) - 1;
    }
    unsigned shift = 11;
    while (1ull << shift < *size) {
        ++shift;
    }
    *size = 1ull << shift;
    return kSmall + shift - 11;
}

EXPORT void* malloc(size_t wanted)
{
    tick();
    uint64_t size = wanted;
    if (size > 1ull << 40) {
        current_thread->error = ENOMEM;
        return NULL;
    }
    const unsigned list = list_of(&size);
    struct block* block = free_blocks[list];
    if (block != NULL) {
        free_blocks[list] = *(struct block**)(block + 1);
    } else {
        block = (struct block*)heap_next;
        if (size + sizeof *block > (uint64_t)(heap_end - heap_next)) {
            current_thread->error = ENOMEM;
            return NULL;
        }
        heap_next += size + sizeof *block;
    }
    block->size = size;
    block->state = kUsed;
    return block + 1;
}

EXPORT void free(void* memory)
{
    if (memory == NULL) {
        return;
    }
    struct block* block = (struct block*)memory - 1;
    if (block->state != kUsed) {
        host_fail(block->state == kFree ? "free: the block is free already"
                                        : "free: not the beginning of a block");
    }
    block->state = kFree;
    uint64_t size = block->size;
    const unsigned list = list_of(&size);
    *(struct block**)memory = free_blocks[list];
    free_blocks[list] = block;
}

// Eight bytes without alignment.
typedef uint64_t __attribute__((aligned(1), may_alias)) word;

EXPORT void* memset(void* memory, int value, size_t size)
{
    unsigned char* out = memory;
    const word filled = 0x0101010101010101ull * (unsigned char)value;
    for (; size >= 8; size -= 8, out += 8) {
        *(word*)out = filled;
    }
    while (size-- != 0) {
        *out++ = (unsigned char)value;
    }
    return memory;
}

EXPORT void bzero(void* memory, size_t size)
{
    memset(memory, 0, size);
}

EXPORT void __bzero(void* memory, size_t size)
{
    memset(memory, 0, size);
}

EXPORT void* memmove(void* to, const void* from, size_t size)
{
    char* out = to;
    const char* in = from;
    if (out <= in || out >= in + size) {
        for (; size >= 8; size -= 8, out += 8, in += 8) {
            *(word*)out = *(const word*)in;
        }
        while (size-- != 0) {
            *out++ = *in++;
        }
        return to;
    }
    for (; size >= 8; size -= 8) {
        *(word*)(out + size - 8) = *(const word*)(in + size - 8);
    }
    while (size-- != 0) {
        out[size] = in[size];
    }
    return to;
}

EXPORT void* memcpy(void* restrict to, const void* restrict from, size_t size)
{
    return memmove(to, from, size);
}

EXPORT void* calloc(size_t count, size_t size)
{
    const size_t bytes = count * size;
    if (size != 0 && bytes / size != count) {
        current_thread->error = ENOMEM;
        return NULL;
    }
    void* const memory = malloc(bytes);
    return memory != NULL ? memset(memory, 0, bytes) : NULL;
}

EXPORT void* realloc(void* old, size_t size)
{
    if (old == NULL) {
        return malloc(size);
    }
    const struct block* block = (struct block*)old - 1;
    if (block->state != kUsed) {
        host_fail("realloc: not a block");
    }
    if (size <= block->size) {
        return old;
    }
    void* const memory = malloc(size);
    if (memory != NULL) {
        memmove(memory, old, block->size);
        free(old);
    }
    return memory;
}

// No free list provides larger alignments, so such a block is never reused.
EXPORT void* aligned_alloc(size_t alignment, size_t size)
{
    if (alignment <= 16) {
        return malloc(size);
    }
    char* const memory = malloc(size + alignment + sizeof(struct block));
    if (memory == NULL) {
        return NULL;
    }
    const uintptr_t first = (uintptr_t)memory + sizeof(struct block) + alignment - 1;
    struct block* const block = (struct block*)(first & ~(alignment - 1)) - 1;
    block->size = size & ~15ull;
    block->state = kUsed;
    return block + 1;
}

EXPORT int memcmp(const void* left, const void* right, size_t size)
{
    const unsigned char* a = left;
    const unsigned char* b = right;
    for (; size != 0; --size, ++a, ++b) {
        if (*a != *b) {
            return *a - *b;
        }
    }
    return 0;
}

EXPORT void* memchr(const void* memory, int value, size_t size)
{
    for (const unsigned char* at = memory; size != 0; --size, ++at) {
        if (*at == (unsigned char)value) {
            return (void*)at;
        }
    }
    return NULL;
}

EXPORT size_t strlen(const char* text)
{
    const char* end = text;
    while (*end != '\0') {
        ++end;
    }
    return (size_t)(end - text);
}

EXPORT size_t strnlen(const char* text, size_t size)
{
    size_t length = 0;
    while (length < size && text[length] != '\0') {
        ++length;
    }
    return length;
}

EXPORT int strncmp(const char* left, const char* right, size_t size)
{
    for (; size != 0; --size, ++left, ++right) {
        if (*left != *right || *left == '\0') {
            return (unsigned char)*left - (unsigned char)*right;
        }
    }
    return 0;
}

EXPORT int strcmp(const char* left, const char* right)
{
    return strncmp(left, right, SIZE_MAX);
}

static int lower(unsigned char c)
{
    return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c;
}

// In the C locale.
EXPORT int strcasecmp(const char* left, const char* right)
{
    while (*left != '\0' && lower((unsigned char)*left) == lower((unsigned char)*right)) {
        ++left;
        ++right;
    }
    return lower((unsigned char)*left) - lower((unsigned char)*right);
}

EXPORT char* strcpy(char* to, const char* from)
{
    char* const start = to;
    while ((*to++ = *from++) != '\0') {
    }
    return start;
}

EXPORT char* strchr(const char* text, int c)
{
    for (;; ++text) {
        if (*text == (char)c) {
            return (char*)text;
        }
        if (*text == '\0') {
            return NULL;
        }
    }
}

EXPORT char* strrchr(const char* text, int c)
{
    const char* found = NULL;
    for (;; ++text) {
        if (*text == (char)c) {
            found = text;
        }
        if (*text == '\0') {
            return (char*)found;
        }
    }
}

EXPORT char* strstr(const char* text, const char* part)
{
    const size_t size = strlen(part);
    for (; strncmp(text, part, size) != 0; ++text) {
        if (*text == '\0') {
            return NULL;
        }
    }
    return (char*)text;
}

EXPORT char* strdup(const char* text)
{
    const size_t size = strlen(text) + 1;
    char* const copy = malloc(size);
    return copy != NULL ? memcpy(copy, text, size) : NULL;
}

EXPORT size_t wcslen(const wchar_t* text)
{
    size_t length = 0;
    while (text[length] != 0) {
        ++length;
    }
    return length;
}

EXPORT wchar_t* wmemchr(const wchar_t* memory, wchar_t value, size_t size)
{
    for (; size != 0; --size, ++memory) {
        if (*memory == value) {
            return (wchar_t*)memory;
        }
    }
    return NULL;
}

EXPORT int wmemcmp(const wchar_t* left, const wchar_t* right, size_t size)
{
    for (; size != 0; --size, ++left, ++right) {
        if (*left != *right) {
            return *left < *right ? -1 : 1;
        }
    }
    return 0;
}

EXPORT wchar_t* wcschr(const wchar_t* text, wchar_t c)
{
    for (;; ++text) {
        if (*text == c) {
            return (wchar_t*)text;
        }
        if (*text == 0) {
            return NULL;
        }
    }
}
