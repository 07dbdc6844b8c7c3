"""libSystem, libc++ and CoreFoundation, as far as the bundle uses them.

One thread does everything: what would run on another queue waits in a list until a case, or a wait of the
bundle's, has it run.
"""

import math
import struct

from failure import Failure
from frameworks import format_text
from imports import imported, imported_raw
from objects import quoted

NOW = 0
FOREVER = (1 << 64) - 1
# What the clock shows at the start.
START = 1_000_000_000_000
DONE = (1 << 64) - 1


class System:
    def __init__(self, process):
        self._process = process
        self._machine = process.machine
        self._allocations = {}
        self._locked = set()
        self._mutexes = set()
        self.clock = START
        self.exit_functions = []
        self.observers = []
        self.main_queue = self._machine.add_data('the main queue', bytes(64))
        self._global_queue = self._machine.add_data('a global queue', bytes(64))
        self._center = self._machine.add_data('the distributed notification center', bytes(64))
        self.data = {
            '__dispatch_main_q': self.main_queue,
            '___stack_chk_guard': self._machine.add_data('the stack guard', struct.pack('<Q', 0x5A_A55A_A55A_00)),
        }
        # (block) and (time, block): what other threads and the main queue have yet to do.
        self.main_blocks = []
        self._timers = []

    # --- Memory -----------------------------------------------------------------------------------------

    def note_allocation(self, address, what):
        self._allocations[address] = what

    def forget_allocation(self, address, what):
        if self._allocations.pop(address, None) != what:
            raise Failure(f'{what} is freed at {self._machine.describe(address)}, where there is none')

    @imported('__Znwm', 'Q', 'p')
    def operator_new(self, size):
        address = self._machine.allocate(size)
        self.note_allocation(address, 'memory of operator new')
        return address

    @imported('__ZdlPv', 'p')
    @imported('__ZdlPvm', 'p')
    def operator_delete(self, address):
        if address:
            self.forget_allocation(address, 'memory of operator new')

    @imported('_strlen', 'p', 'Q')
    def strlen(self, text):
        return len(self._machine.read_text(text))

    @imported('_memcmp', 'ppQ', 'i')
    def memcmp(self, first, second, size):
        first, second = self._machine.read(first, size), self._machine.read(second, size)
        return (first > second) - (first < second)

    @imported('_floor', 'd', 'd')
    def floor(self, value):
        return float(math.floor(value))

    @imported('___stack_chk_fail')
    def stack_check_failed(self):
        raise Failure('a function wrote beyond its part of the stack')

    # --- The process ------------------------------------------------------------------------------------

    @imported('_getpid', '', 'i')
    def getpid(self):
        self._process.record('getpid()')
        return 4242

    @imported('___cxa_atexit', 'ppp', 'i')
    def at_exit(self, function, argument, image):
        describe = self._machine.describe
        self._process.record(f'__cxa_atexit({describe(function)}, {describe(argument)}, {describe(image)})')
        self.exit_functions.append((function, argument))
        return 0

    @imported_raw('_NSLog')
    def log(self, call):
        reader = call.reader()
        template = self._process.objc.at(reader.next('p'))
        text = format_text(self._process, template.payload, reader)
        self._process.record(f'NSLog({template}, …) writes {quoted(text)}')
        call.finish()

    # --- Locks ------------------------------------------------------------------------------------------

    @imported('_pthread_mutex_init', 'pp', 'i')
    def mutex_init(self, mutex, _attributes):
        self._mutexes.add(mutex)
        return 0

    @imported('_pthread_mutex_lock', 'p', 'i')
    def mutex_lock(self, mutex):
        # PTHREAD_MUTEX_INITIALIZER of <pthread.h>.
        if mutex not in self._mutexes and self._machine.read_pointer(mutex) != 0x32AA_ABA7:
            raise Failure('a mutex is locked that was not set up')
        if mutex in self._locked:
            raise Failure('a mutex is locked twice: a deadlock')
        self._locked.add(mutex)
        return 0

    @imported('_pthread_mutex_unlock', 'p', 'i')
    def mutex_unlock(self, mutex):
        if mutex not in self._locked:
            raise Failure('a mutex is unlocked that is not locked')
        self._locked.remove(mutex)
        return 0

    # --- Dispatch ---------------------------------------------------------------------------------------

    @imported('_dispatch_once', 'pp')
    def once(self, predicate, block):
        if self._machine.read_pointer(predicate) != DONE:
            self._process.objc.invoke(self._process.objc.at(block))
            self._machine.write_pointer(predicate, DONE)

    @imported('_dispatch_time', 'Qq', 'Q')
    def time(self, base, delta):
        return FOREVER if base == FOREVER else (self.clock if base == NOW else base) + delta

    @imported('_dispatch_get_global_queue', 'qQ', 'p')
    def global_queue(self, priority, _flags):
        if priority != 0:
            raise Failure('a global queue of another priority than the default')
        return self._global_queue

    def _copy_of(self, block):
        return self._process.objc.copy(self._process.objc.at(block))

    @imported('_dispatch_async', 'pp')
    def run_later(self, queue, block):
        self._process.record(f'dispatch_async({self._machine.describe(queue)}, a block)')
        if queue != self.main_queue:
            raise Failure('a block is sent to another queue than the main one')
        self.main_blocks.append(self._copy_of(block))

    @imported('_dispatch_after', 'Qpp')
    def run_after(self, time, queue, block):
        self._process.record(f'dispatch_after(in {(time - self.clock) / 1e9:g} s, {self._machine.describe(queue)}, '
                             'a block)')
        self._timers.append((time, self._copy_of(block)))

    def run_timer(self, until):
        """Runs the timer that was set first, if it is due by then; returns whether it was."""
        if not self._timers or self._timers[0][0] > until:
            return False
        time, block = self._timers.pop(0)
        self.clock = max(self.clock, time)
        self._process.objc.run(block)
        return True

    def let_pass(self, duration):
        """Time passes, in nanoseconds."""
        end = self.clock + duration
        while self.run_timer(end):
            pass
        self.clock = end

    @imported('_dispatch_group_create', '', 'p')
    def create_group(self):
        # An object of Objective-C, which blocks retain.
        return self._process.objc.make('OS_dispatch_group', payload=0).address

    @imported('_dispatch_group_enter', 'p')
    def enter_group(self, group):
        self._process.objc.at(group).payload += 1

    @imported('_dispatch_group_leave', 'p')
    def leave_group(self, group):
        group = self._process.objc.at(group)
        if group.payload == 0:
            raise Failure('a group is left that was not entered')
        group.payload -= 1

    @imported('_dispatch_group_wait', 'pQ', 'q')
    def wait_for_group(self, group, time):
        self._process.record(f'dispatch_group_wait(for {(time - self.clock) / 1e9:g} s)')
        if self._locked:
            raise Failure('a thread waits that has a mutex locked')
        group = self._process.objc.at(group)
        while group.payload and (self._process.agent.reply_once() or self.run_timer(time)):
            pass
        if group.payload == 0:
            return 0
        self._process.record(f'{(time - self.clock) / 1e9:g} s pass')
        self.clock = time
        return 1

    @imported('_dispatch_retain', 'p')
    def retain(self, address):
        self._process.objc.retain(self._process.objc.at(address))

    @imported('_dispatch_release', 'p')
    def release(self, address):
        self._process.objc.release(self._process.objc.at(address))

    # --- CoreFoundation ---------------------------------------------------------------------------------

    @imported('_CFNotificationCenterGetDistributedCenter', '', 'p')
    def distributed_center(self):
        return self._center

    @imported('_CFNotificationCenterAddObserver', 'pppppq')
    def add_observer(self, center, observer, callback, name, sender, behaviour):
        describe = self._process.objc.describe
        self._process.record(f'CFNotificationCenterAddObserver({self._machine.describe(center)}, '
                             f'{self._machine.describe(observer)}, {self._machine.describe(callback)}, '
                             f'{describe(name)}, {describe(sender)}, {behaviour})')
        self.observers.append((observer, callback, self._process.objc.at(name).payload))

    @imported('_CFNotificationCenterRemoveObserver', 'pppp')
    def remove_observer(self, center, observer, name, sender):
        describe = self._process.objc.describe
        self._process.record(f'CFNotificationCenterRemoveObserver({self._machine.describe(center)}, '
                             f'{self._machine.describe(observer)}, {describe(name)}, {describe(sender)})')
        self.observers = [each for each in self.observers
                          if (each[0], each[2]) != (observer, self._process.objc.at(name).payload)]

    @imported('_CFDictionaryGetValue', 'pp', 'p')
    def dictionary_value(self, dictionary, key):
        entries = {key.payload: value for key, value in self._process.objc.at(dictionary).payload.items()}
        found = entries.get(self._process.objc.at(key).payload)
        return found.address if found else 0

    def post(self, user_info):
        """Has the distributed center deliver a notification to whoever observes."""
        for observer, callback, name in self.observers:
            self._machine.call(callback, self._center, observer, self._process.constant_string(name).address, 0,
                               user_info.address if user_info else 0)

    # --- What is left -----------------------------------------------------------------------------------

    def remains(self):
        return [*self._allocations.values(), *('a locked mutex' for _ in self._locked)]
