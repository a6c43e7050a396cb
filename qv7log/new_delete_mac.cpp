// The library's own operator new and delete, for a build that makes libc++ a part of the image.
//
// libc++ gives its own out to every image of the process, and a program linked to this library, or
// the system while it joins weak symbols, would take them from here: with another library of the
// same name in place the program would not start. These are compiled hidden and keep libc++'s out.
// Memory of the library never leaves it, so that no other operator delete meets it.
#include <cstdlib>
#include <new>

void* operator new(std::size_t size)
{
    if (void* memory = std::malloc(size != 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return std::malloc(size != 0 ? size : 1);
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return operator new(size, std::nothrow);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
