"""A macOS program as a Linux process: its images in memory, and its system calls."""

import os
import signal
import struct
from dataclasses import dataclass

import unicorn

import images
import processor
from libsystem.registry import FUNCTIONS, Call
from memory import EXECUTE, HEAP, IMAGES, READ, BadAddress, Memory
from scheduling import MAIN_STACK, Invoke, ProcessEnds, Scheduler, is_generator

CALLS_PER_SIGNAL_CHECK = 200
STUBS = 4096
LIBRARIES = IMAGES[0] + 0x4000_0000
STUB_SIZE = 16

# Layout of a thread in guest/guest.h; the blocks of thread-local variables follow.
THREAD_HEAD = 8 + 8 * 128


class Missing(Exception):
    """The program needs a system function that has no model."""


class BrokenProgram(Exception):
    """The program did something that would crash it on macOS, or that no correct program does."""


@dataclass
class Entered:
    """Why the program has left its code: to run a function that blocks, or to yield."""

    stack: int
    generator: object = None
    result: object = None


class Machine:
    """One program. `path` is what the program believes its executable to be."""

    def __init__(self, architecture, guest_directory, cache, prepare):
        self.processor = processor.PROCESSORS[architecture]()
        self._emulator = self.processor.emulator
        self.memory = Memory(self._emulator)
        self._cache = cache
        self._guest_directory = guest_directory
        self.images = []
        self.executable = None
        self.path = ""
        self.arguments = []
        self.counts = {}
        self._names = ["return"]
        self._stub_addresses = {}
        self._calls = 0
        self._entered = None
        self._error = None
        self.moments = None
        self.system = {}  # state of the model's modules
        prepare(self)
        self._load_guest_library()
        self.scheduler = Scheduler(self)
        self._thread_size = THREAD_HEAD
        self._emulator.hook_add(
            unicorn.UC_HOOK_CODE, self._on_call, begin=self._gate_point, end=self._gate_point
        )
        self._emulator.hook_add(unicorn.UC_HOOK_MEM_INVALID, self._on_bad_access)
        self._emulator.hook_add(unicorn.UC_HOOK_INTR, self._on_trap)

    # Images.

    def _load_guest_library(self):
        self._stubs = self.memory_for_stubs()
        guest = self.load(f"{self._guest_directory}/libguest.dylib")
        self._guest = guest
        self._mailbox = guest.export("_mailbox")
        self._gate_point = guest.export("_gate_point")
        self._gate_resume = guest.export("_gate_resume")
        self._current_thread = guest.export("_current_thread")
        self.memory.set_u64(guest.export("_heap_next"), HEAP[0])
        self.memory.set_u64(guest.export("_heap_end"), sum(HEAP))
        table = self.system["variables"]["__DefaultRuneLocale"]
        self.memory.set_u64(guest.export("_character_table"), table)
        for name in guest.file.exports:
            if name.startswith("_host_"):
                self.memory.set_u64(guest.export(name), self._stub(name))
        # Until there are threads.
        self.set_current_thread(self.memory.new(THREAD_HEAD))
        self.load(f"{self._guest_directory}/libunwind.dylib")

    def memory_for_stubs(self):
        """Near the gate, because an ARM jump reaches only 128 MiB."""
        address = LIBRARIES - 0x100_0000
        self.memory.map(address, STUBS * STUB_SIZE, READ | EXECUTE)
        return address

    def load(self, path, preferred=False):
        """Reads, places and binds an image. The images that it needs must be loaded already."""
        file = images.read_image(path, self.processor.name, self._cache)
        address = file.preferred if preferred else LIBRARIES
        if self.images and not preferred:
            address = max(address, images.next_address(self.images))
        image = images.place(self.memory, path, file, address)
        self.images.append(image)
        if len(self.images) == 1:
            self._guest = image
        images.bind(self.memory, image, self._find)
        return image

    def load_program(self, slice_path, path):
        """Loads the executable after the bundle's libraries that it is linked to."""
        self.path = path
        file = images.read_image(slice_path, self.processor.name, self._cache)
        directory = os.path.dirname(path)
        for library in file.libraries:
            if not library.startswith("/usr/lib/"):
                self.load(images.resolve_library(library, file.run_paths, directory))
        self.executable = self.load(slice_path, preferred=True)
        for image in self.images:
            self._place_thread_variables(image)

    def _place_thread_variables(self, image):
        """Gives an image a block in every thread, and its descriptors the block's offset."""
        if not image.file.thread_variables:
            return
        image.thread_offset = self._thread_size
        self._thread_size += (image.file.thread_size + 15) & ~15
        for offset in image.file.thread_variables:
            self.memory.set_u64(image.address + offset + 8, image.thread_offset)

    def new_thread_block(self):
        """Zeroed memory that pthread_t points to, with the thread-local variables of all images."""
        address = self.memory.new(self._thread_size)
        for image in self.images:
            if image.thread_offset:
                self.memory.write(address + image.thread_offset, image.file.thread_content)
        return address

    def _find(self, image, binding):
        """The address for an imported symbol."""
        if binding.weak:
            # The first image that exports it supplies it to all; a local symbol comes last.
            for other in self.images:
                if other.export(binding.name) is not None:
                    return other.export(binding.name)
            if binding.name in image.file.locals:
                return image.address + image.file.locals[binding.name]
        if not binding.library.startswith("/usr/lib/"):
            name = os.path.basename(binding.library)
            for other in self.images:
                if os.path.basename(other.path) == name and other.export(binding.name) is not None:
                    return other.export(binding.name)
            if binding.library:
                raise Missing(f"symbol not found: {binding.name} in {binding.library}")
        return self.system_symbol(binding.name)

    def system_symbol(self, name):
        """The address of a function or variable of the system."""
        for library in self.images[:2]:
            if library.export(name) is not None:
                return library.export(name)
        variable = self.system.get("variables", {}).get(name)
        return variable if variable is not None else self._stub(name)

    def has_model(self, name):
        return name in FUNCTIONS or self._guest.export(name) is not None

    def _stub(self, name):
        if name not in self._stub_addresses:
            address = self._stubs + STUB_SIZE * len(self._names)
            gate = self._guest.export("_gate")
            self.memory.write(address, self.processor.stub(address, len(self._names), gate))
            self._stub_addresses[name] = address
            self._names.append(name)
        return self._stub_addresses[name]

    def symbol(self, name):
        """The address of a function of the guest library."""
        return self._guest.export(name)

    # Calls of the program into the model.

    def mailbox(self, offset, size):
        return self.memory.read(self._mailbox + offset, size)

    def set_mailbox(self, offset, data):
        self.memory.write(self._mailbox + offset, data)

    def _on_call(self, emulator, _address, _size, _data):
        words = processor.MAILBOX.unpack(self.memory.read(self._mailbox, 80))
        number = words[8]
        if number == 0:
            self._entered = None
            emulator.emu_stop()
            return
        name = self._names[number]
        try:
            implementation = FUNCTIONS.get(name)
            if implementation is None:
                raise Missing(f"there is no model of {name[1:]}")
            call = Call(self, words)
            if self.moments is None:
                result = implementation(call)
                self._calls += 1
            else:
                result = self.moments.call(name, implementation, call)
            if is_generator(result):
                self._entered = Entered(words[9], generator=result)
            elif self._calls % CALLS_PER_SIGNAL_CHECK == 0 and not isinstance(result, float):
                self._entered = Entered(words[9], result=result)
            else:
                self._store_result(result)
                return
        except BadAddress as error:
            self._error = BrokenProgram(f"{name[1:]} is called with {error}")
        except Exception as error:
            self._error = error
        emulator.emu_stop()

    def _store_result(self, result):
        if result is None:
            return
        if isinstance(result, float):
            self.set_mailbox(processor.FLOATS, struct.pack("<d", result))
        else:
            self.memory.set_u64(self._mailbox, result)

    def return_long_double(self, value):
        """The result of a function that returns a long double."""
        if self.processor.long_double_is_double:
            return float(value)
        self.set_mailbox(processor.LONG_DOUBLE, processor.float_to_extended(value))
        self.set_mailbox(processor.RETURNS_LONG_DOUBLE, b"\1")
        return None

    def set_errno(self, number):
        """Sets the calling thread's errno to a macOS error number."""
        self.memory.set_u32(self.scheduler.current.address, number)

    def errno(self):
        return self.memory.u32(self.scheduler.current.address)

    # For the scheduler.

    def set_current_thread(self, address):
        self.memory.set_u64(self._current_thread, address)

    def begin(self, address, arguments, stack):
        return_address = self.symbol("_guest_return")
        self.processor.begin_call(self.memory, arguments, stack, return_address)
        return self._run(address)

    def resume(self, result):
        self._store_result(result)
        return self._run(self._gate_resume)

    def returned(self):
        """The result of the function that has returned."""
        return self.memory.u64(self._mailbox)

    def _run(self, address):
        self._error = None
        try:
            self._emulator.emu_start(address, 1)
        except unicorn.UcError as error:
            self._error = self._error or BrokenProgram(str(error))
        if self._error is not None:
            raise self._error
        return self._entered

    def save_context(self, context):
        if context is None:
            return self._emulator.context_save()
        self._emulator.context_update(context)
        return context

    def restore_context(self, context):
        self._emulator.context_restore(context)

    def signal_number(self, number):
        return self.system["signal_number"](number)

    def _on_bad_access(self, _emulator, _access, address, _size, _value, _data):
        self._error = BrokenProgram(f"access to address {address:#x} in {self.where()}")
        return False

    def _on_trap(self, emulator, number, _data):
        self._error = BrokenProgram(f"trap {number} in {self.where()}")
        emulator.emu_stop()

    def where(self):
        """The function that the processor is executing."""
        pc = self._emulator.reg_read(self.processor.pc)
        return self.name_of(pc)

    def name_of(self, address):
        best, name = 0, f"{address:#x}"
        for image in self.images:
            if image.address <= address < image.address + image.size:
                for symbol, offset in image.file.locals.items():
                    if best < image.address + offset <= address:
                        best, name = image.address + offset, f"{symbol} ({address:#x})"
        return name

    # Running the program.

    def run(self, arguments, environment):
        """Runs the program; returns its exit status."""
        self.arguments = arguments
        argv = self.memory.new_vector(arguments)
        envp = self.memory.new_vector(environment)
        self.system["environment"] = envp
        main_arguments = (
            len(arguments),
            argv,
            envp,
            self.memory.new_vector([os.fsencode(self.path)]),
        )
        self.system["main"] = main_arguments
        thread = self.scheduler.new_thread(MAIN_STACK)
        self.scheduler.start(thread, self._life(main_arguments))
        return self.scheduler.run()

    def _life(self, main_arguments):
        for image in self.images:
            for address in images.initialiser_addresses(self.memory, image):
                yield Invoke(address, *main_arguments)
        entry = self.executable.address + self.executable.file.entry
        status = yield Invoke(entry, *main_arguments)
        yield from self.system["exit"](self, status & 0xFFFF_FFFF)

    def end_process(self, status):
        raise ProcessEnds(status & 0xFF)

    @staticmethod
    def end_by_signal(number):
        """Ends the process by a signal's default action."""
        signal.signal(number, signal.SIG_DFL)
        signal.pthread_sigmask(signal.SIG_SETMASK, set())
        os.kill(os.getpid(), number)
