"""Streams: stdio(3) and the manual pages it names."""

import os
import subprocess

import values
from libsystem.errors import FAILED, fail, sets_errno
from libsystem.formats import IllegalSequence, format_text
from libsystem.registry import function

EOF = 0xFFFF_FFFF
BUFFER = 4096  # of a stream that is not a terminal: st_blksize of common file systems
READ_SIZE = 4096
BASE_FLAGS = {"r": os.O_RDONLY, "w": os.O_WRONLY | os.O_CREAT | os.O_TRUNC,
              "a": os.O_WRONLY | os.O_CREAT | os.O_APPEND}  # fmt: skip


class Stream:
    """An open stream. `unread` holds what was read ahead or pushed back."""

    def __init__(self, descriptor):
        self.descriptor = descriptor
        self.unwritten = bytearray()
        self.unread = b""
        self.at_end = False
        self.failed = False
        self.buffered = True
        self.process = None

    def write(self, data):
        self.unwritten += data
        terminal = b"\n" in data and os.isatty(self.descriptor)
        if not self.buffered or terminal or len(self.unwritten) >= BUFFER:
            self.flush()

    def flush(self):
        data, self.unwritten = bytes(self.unwritten), bytearray()
        while data:
            try:
                data = data[os.write(self.descriptor, data) :]
            except OSError:
                self.failed = True
                raise

    def fill(self):
        """Reads ahead; False at the end of the file or on an error."""
        if not self.unread and not self.at_end:
            try:
                self.unread = os.read(self.descriptor, READ_SIZE)
            except OSError:
                self.failed = True
                raise
            self.at_end = not self.unread
        return bool(self.unread)

    def take(self, size):
        found, self.unread = self.unread[:size], self.unread[size:]
        return found

    def seek(self, offset, whence):
        self.flush()
        if whence == os.SEEK_CUR:
            offset -= len(self.unread)
        os.lseek(self.descriptor, offset, whence)
        self.unread = b""
        self.at_end = False

    def tell(self):
        return os.lseek(self.descriptor, 0, os.SEEK_CUR) - len(self.unread) + len(self.unwritten)


def prepare(machine):
    """The three standard streams, as variables of the system."""
    variables = machine.system.setdefault("variables", {})
    machine.system["streams"] = {}
    for descriptor, name in enumerate(("___stdinp", "___stdoutp", "___stderrp")):
        stream = Stream(descriptor)
        stream.buffered = descriptor != 2
        variables[name] = machine.memory.new(8)
        machine.memory.set_u64(variables[name], new_stream(machine, stream))


def new_stream(machine, stream):
    address = machine.memory.new(16)
    machine.system["streams"][address] = stream
    return address


def stream_of(call, index):
    return call.machine.system["streams"][call.u64(index)]


def standard_output(machine):
    pointer = machine.system["variables"]["___stdoutp"]
    return machine.system["streams"][machine.memory.u64(pointer)]


def flush_all(machine):
    """Flushes open streams, as exit(3) does."""
    for stream in machine.system["streams"].values():
        try:
            stream.flush()
        except OSError:
            pass


@function("_fopen")
@sets_errno(0)
def fopen(call):
    """fopen(3)."""
    mode = call.text(1).decode()
    flags = BASE_FLAGS[mode[0]]
    if "+" in mode:
        flags = flags & ~os.O_WRONLY | os.O_RDWR
    if "x" in mode:
        flags |= os.O_EXCL
    descriptor = os.open(call.path(0), flags, 0o666)
    os.set_inheritable(descriptor, "e" not in mode)
    return new_stream(call.machine, Stream(descriptor))


@function("_fdopen")
@sets_errno(0)
def fdopen(call):
    """fopen(3)."""
    os.fstat(call.i32(0))
    return new_stream(call.machine, Stream(call.i32(0)))


@function("_fclose")
@sets_errno(EOF)
def fclose(call):
    """fclose(3)."""
    stream = call.machine.system["streams"].pop(call.u64(0))
    try:
        stream.flush()
    finally:
        os.close(stream.descriptor)
    return 0


@function("_fflush")
@sets_errno(EOF)
def fflush(call):
    """fflush(3): without a stream, all of them."""
    if call.u64(0) == 0:
        flush_all(call.machine)
    else:
        stream_of(call, 0).flush()
    return 0


@function("_setbuf")
def setbuf(call):
    """setbuf(3); a buffer that the program passes is not used."""
    stream_of(call, 0).buffered = call.u64(1) != 0


@function("_fileno")
def fileno(call):
    """ferror(3)."""
    return stream_of(call, 0).descriptor


@function("_feof")
def feof(call):
    """ferror(3)."""
    return int(stream_of(call, 0).at_end)


@function("_ferror")
def ferror(call):
    """ferror(3)."""
    return int(stream_of(call, 0).failed)


@function("_fseek", "_fseeko")
@sets_errno()
def fseeko(call):
    """fseek(3)."""
    stream_of(call, 0).seek(call.i64(1), call.i32(2))
    return 0


@function("_ftell", "_ftello")
@sets_errno()
def ftello(call):
    """fseek(3)."""
    return stream_of(call, 0).tell()


@function("_fread")
@sets_errno(0)
def fread(call):
    """fread(3): whole items; a partial item at the end of the file is lost."""
    size, stream = call.u64(1), stream_of(call, 3)
    wanted = size * call.u64(2)
    found = b""
    try:
        while len(found) < wanted and stream.fill():
            found += stream.take(wanted - len(found))
    finally:
        call.store(0, found)
    return len(found) // size if size else 0


@function("_fgets")
@sets_errno(0)
def fgets(call):
    """fgets(3)."""
    stream, size = stream_of(call, 2), call.i32(1)
    found = b""
    while len(found) < size - 1 and not found.endswith(b"\n") and stream.fill():
        end = stream.unread.find(b"\n") + 1 or len(stream.unread)
        found += stream.take(min(end, size - 1 - len(found)))
    if not found:
        return 0
    call.store(0, found + b"\0")
    return call.u64(0)


@function("_getc")
@sets_errno(EOF)
def getc(call):
    """getc(3)."""
    stream = stream_of(call, 0)
    return stream.take(1)[0] if stream.fill() else EOF


@function("_ungetc")
def ungetc(call):
    """ungetc(3)."""
    if call.u32(0) == EOF:
        return EOF
    stream = stream_of(call, 1)
    stream.unread = bytes([call.u32(0) & 0xFF]) + stream.unread
    stream.at_end = False
    return call.u32(0) & 0xFF


def write_to(call, stream, data, result):
    try:
        stream.write(data)
    except OSError as error:
        call.machine.set_errno(values.errno_of(error))
        return EOF
    return result


@function("_fwrite")
def fwrite(call):
    """fread(3)."""
    size, count = call.u64(1), call.u64(2)
    data = call.data(0, size * count)
    return count if write_to(call, stream_of(call, 3), data, 0) == 0 else 0


@function("_fputc")
def fputc(call):
    """putc(3)."""
    return write_to(call, stream_of(call, 1), bytes([call.u32(0) & 0xFF]), call.u32(0) & 0xFF)


@function("_putchar")
def putchar(call):
    """putc(3)."""
    character = call.u32(0) & 0xFF
    return write_to(call, standard_output(call.machine), bytes([character]), character)


@function("_fputs")
def fputs(call):
    """fputs(3)."""
    return write_to(call, stream_of(call, 1), call.text(0), 0)


@function("_puts")
def puts(call):
    """fputs(3)."""
    return write_to(call, standard_output(call.machine), call.text(0) + b"\n", 0)


def print_to(call, stream, template, arguments):
    try:
        text = format_text(call.machine.memory, template, arguments)
    except IllegalSequence:
        return fail(call, "EILSEQ")
    return write_to(call, stream, text, len(text))


@function("_printf")
def printf(call):
    """printf(3)."""
    return print_to(call, standard_output(call.machine), call.text(0), call.variadic(1))


@function("_vprintf")
def vprintf(call):
    """printf(3)."""
    return print_to(call, standard_output(call.machine), call.text(0), call.va_list(1))


@function("_fprintf")
def fprintf(call):
    """printf(3)."""
    return print_to(call, stream_of(call, 0), call.text(1), call.variadic(2))


@function("_vfprintf")
def vfprintf(call):
    """printf(3)."""
    return print_to(call, stream_of(call, 0), call.text(1), call.va_list(2))


@function("_perror")
def perror(call):
    """perror(3)."""
    text = values.ERROR_TEXTS.get(call.machine.errno(), "Unknown error")
    os.write(2, call.text(0) + b": " + text.encode() + b"\n")


@function("_popen")
@sets_errno(0)
def popen(call):
    """popen(3), for reading: this machine's shell runs the command."""
    if call.text(1) != b"r":
        raise NotImplementedError("popen for writing")
    flush_all(call.machine)
    process = subprocess.Popen(["/bin/sh", "-c", call.text(0)], stdout=subprocess.PIPE)
    stream = Stream(process.stdout.fileno())
    stream.process = process
    return new_stream(call.machine, stream)


@function("_pclose")
def pclose(call):
    """popen(3): the wait status."""
    stream = call.machine.system["streams"].pop(call.u64(0), None)
    if stream is None or stream.process is None:
        return fail(call, "ECHILD") & FAILED
    stream.process.stdout.close()
    code = stream.process.wait()
    return values.signal_to_macos(-code) if code < 0 else code << 8
