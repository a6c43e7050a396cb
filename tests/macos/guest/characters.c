// Characters of the "C" locale: ctype(3), tolower(3), toupper(3).

#include "guest.h"

// The table of the model, __DefaultRuneLocale; set when the library is loaded.
EXPORT const struct {
    char head[60];
    uint32_t types[256];
    uint32_t lower[256];
    uint32_t upper[256];
}* character_table;

EXPORT unsigned long __maskrune(uint32_t character, unsigned long mask)
{
    return character < 256 ? character_table->types[character] & mask : 0;
}

EXPORT unsigned long __maskrune_l(uint32_t character, unsigned long mask)
{
    return __maskrune(character, mask);
}

EXPORT uint32_t __tolower(uint32_t character)
{
    return character < 256 ? character_table->lower[character] : character;
}

EXPORT uint32_t __toupper(uint32_t character)
{
    return character < 256 ? character_table->upper[character] : character;
}
