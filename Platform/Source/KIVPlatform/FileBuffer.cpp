// The read-ahead of a FILE. glibc declares these two members in <stdio.h> because getc_unlocked() is
// inlined over them, so they are part of its binary interface. With other C libraries no bytes count as read
// ahead.
#include <KIVPlatform/KIVPFileBuffer.h>

#ifdef __GLIBC__

size_t KIVPFileBuffered(FILE *file, const unsigned char **bytes)
{
    *bytes = reinterpret_cast<const unsigned char *>(file->_IO_read_ptr);
    // While the file is being written, both members are equal: no bytes are read ahead.
    return file->_IO_read_ptr < file->_IO_read_end
               ? static_cast<size_t>(file->_IO_read_end - file->_IO_read_ptr)
               : 0;
}

void KIVPFileTakeBuffered(FILE *file, size_t size)
{
    file->_IO_read_ptr += size;
}

#else

size_t KIVPFileBuffered(FILE *, const unsigned char **bytes)
{
    *bytes = nullptr;
    return 0;
}

void KIVPFileTakeBuffered(FILE *, size_t) {}

#endif
