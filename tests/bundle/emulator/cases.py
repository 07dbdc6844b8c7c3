"""Runs the cases of cases/*.txt, which say what is done and what the bundle has to do then.

    == a name                     begins a case, in a process of its own (== x86_64| a name: of that processor)
    > something that is done      see `Case.STEPS`; a call is written as in a script
    a call outside of the bundle  in the order in which they come, then what the script gets
    x86_64| a call                of that processor alone
    .. a name: a text             stands for the lines of that name in repeated.txt, with the text for each #
    VERSION                       stands for the client's version, in any line

Lines that begin with # and empty lines are left out. A step ends with what the connections' queue does then:
to hold up a reply, a case has the agent hang. After the last step the timers run, and a case ends with the
objects that are alive. Calls that only count references, open scopes, lock or read are not listed: that they
fit together is checked by the models themselves.
"""

import difflib
import json
import re
from collections import Counter
from dataclasses import dataclass
from pathlib import Path

from agent import TRAITS
from engine import UNDEFINED, ScriptError, ScriptException, ScriptFunction, ScriptObject
from failure import Failure
from process import Process
from system import FOREVER

REPEATED = Path(__file__).with_name('repeated.txt')
VERSION = json.loads((Path(__file__).resolve().parents[3] / 'package.json').read_text(encoding='utf-8'))['version']
ARCHITECTURE_LINE = re.compile(r'(x86_64|arm64)\| (.*)')


@dataclass
class CaseText:
    name: str
    lines: list


def for_architecture(text, architecture):
    """A line as it is for that processor; None if it is of the other one."""
    match = ARCHITECTURE_LINE.fullmatch(text)
    if match is None:
        return text
    return match[2] if match[1] == architecture else None


def read_cases(file, architecture):
    """A file's cases for one processor, each with its lines."""
    repeated = {case.name: case.lines for case in _read(REPEATED, architecture)}
    cases = _read(file, architecture)
    for case in cases:
        case.name = f'{file.stem}: {case.name}'
        case.lines = written_out(case.lines, repeated)
    return cases


def written_out(lines, repeated):
    """The lines, with those of repeated.txt in the place of their names."""
    written = []
    for line in lines:
        if line.startswith('.. '):
            name, _, text = line[3:].partition(': ')
            written += written_out([each.replace('#', text) for each in repeated[name]], repeated)
        else:
            written.append(line)
    return written


def _read(file, architecture):
    cases = []
    is_left_out = False
    for line in file.read_text(encoding='utf-8').replace('VERSION', VERSION).splitlines():
        if line.startswith('== '):
            name = for_architecture(line[3:], architecture)
            is_left_out = name is None
            if not is_left_out:
                cases.append(CaseText(name, []))
        elif line and not line.startswith('#') and not is_left_out:
            chosen = for_architecture(line, architecture)
            if chosen is not None:
                cases[-1].lines.append(chosen)
    return cases


def counted(lines):
    """Each line once, with how often it is there."""
    return [f'{count} × {line}' if count > 1 else line for line, count in Counter(lines).items()]


def throw_error(*arguments):
    raise ScriptException(ScriptError('Error', 'of the callback'))


WORDS = {
    'undefined': lambda: UNDEFINED,
    'null': lambda: None,
    'an object': lambda: ScriptObject('an object'),
    # Such as an object whose toString throws, or a symbol.
    'an object without a text': lambda: ScriptObject('an object without a text', None),
    'a callback': lambda: ScriptFunction('callback'),
    'a callback that throws': lambda: ScriptFunction('callback', throw_error),
}


def read_arguments(text):
    """The values of a call's arguments."""
    values, decoder, at = [], json.JSONDecoder(), 0
    while at < len(text):
        word = re.match(r'(an? [a-z ]+|undefined|null)', text[at:])
        if word:
            value, at = WORDS[word[1]](), at + word.end()
        else:
            value, at = decoder.raw_decode(text, at)
        values.append(value)
        at += len(', ') if text[at:at + 2] == ', ' else 0
    return values


class Case:
    """One run of a case on one processor."""

    def __init__(self, image, layout, find_functions, is_oldest_system):
        self.process = Process(image, layout, is_oldest_system)
        self._loaded = self.take()
        self._find_functions = find_functions
        self._functions = None

    def take(self):
        """What has been recorded since the last time."""
        lines, self.process.transcript = self.process.transcript, []
        return lines

    def do(self, step):
        for pattern, action in self.STEPS:
            match = re.fullmatch(pattern, step)
            if match:
                self.process.machine.block_count = 0
                action(self, *match.groups())
                self.process.run_connections()
                return
        raise Failure(f'no step is written like this: {step}')

    def repeat(self, count, step):
        """Does a step that the case had before. Now calls leave no garbage, which would take longest."""
        self.process.machine.leaves_garbage = False
        for _ in range(int(count)):
            self.do(step)
        self.process.machine.leaves_garbage = True
        self.process.transcript = counted(self.take())

    def load(self):
        self.process.transcript = self._loaded

    def call(self, name, arguments):
        if self._functions is None:
            self._functions = self._find_functions(self.process)
            self.take()
        self.process.record(self.process.engine.call(self._functions[name], *read_arguments(arguments)))

    def require(self):
        self._functions = self.process.require()

    def tell_record(self):
        for field, value in self.process.module_record().items():
            is_pointer = isinstance(value, int) and field not in ('version', 'flags')
            self.process.record(f'{field}: {self.process.machine.describe(value) if is_pointer else value}')

    def set_agent(self, words):
        for word in words.split(', '):
            if word not in TRAITS:
                raise Failure(f'no agent is like this: {word}')
            setattr(self.process.agent, *TRAITS[word])

    def notify(self, text):
        process = self.process
        entries = {process.constant_string('com.pellmar.debug-log-message'): process.constant_string(text)} \
            if text is not None else {}
        process.system.post(process.objc.make_immortal('NSDictionary', '{}', entries))

    def translate(self, key, text):
        self.process.translations[json.loads(key)] = json.loads(text)

    def run_main_queue_and_pick(self, words):
        self.process.run_main_queue()
        self.process.transcript = [line for line in self.take() if any(word in line for word in words.split(' or '))]

    def finish(self):
        """Has everything come to its end that is under way."""
        while self.process.system.run_timer(FOREVER):
            self.process.run_connections()

    STEPS = [
        (r'load the bundle', load),
        (r'the record of the module', tell_record),
        (r'require the module', require),
        (r'(PL\w+|probe\w+)\((.*)\)', call),
        (r'(\d+) × (.*)', repeat),
        (r'the agent ends', lambda self: self.process.agent.interrupt()),
        (r'the agent (.*)', set_agent),
        (r'(\d+) ms pass', lambda self, count: self.process.system.let_pass(int(count) * 1_000_000)),
        (r'the main queue runs', lambda self: self.process.run_main_queue()),
        (r'the main queue runs, unlisted', lambda self: (self.process.run_main_queue(), self.take())),
        (r'the main queue runs, listed where it says (.*)', run_main_queue_and_pick),
        (r'a click on "(.*)"', lambda self, title: self.process.press('title', title)),
        (r'the key (".*")', lambda self, key: self.process.press('keyEquivalent', json.loads(key))),
        (r'the system turns dark', lambda self: self.process.turn_dark()),
        (r'the application translates (".*") as (".*")', translate),
        (r'a notification with "(.*)"', notify),
        (r'a notification without a message', lambda self: self.notify(None)),
        (r'the process exits', lambda self: self.process.exit()),
    ]


OLDEST_SYSTEM = '> on the oldest system'


def run_case(case, image, layout, find_functions):
    """Runs a case; returns the blocks of code that ran. Raises a Failure that tells what is different."""
    expected = case.lines
    steps = [line for line in expected if line.startswith('> ')]
    actual = []
    run = None
    try:
        run = Case(image, layout, find_functions, OLDEST_SYSTEM in steps)
        for step in steps:
            actual.append(step)
            if step != OLDEST_SYSTEM:
                run.do(step[2:])
                actual += run.take()
        run.finish()
        actual += run.take()
        actual += [f'NOT GIVEN BACK: {fault}' for fault in run.process.remains()]
        actual += [f'alive: {line}' for line in counted(run.process.objc.left())]
    except Failure as failure:
        actual += (run.take() if run else []) + [f'FAULT: {failure}']
    if actual != expected:
        raise Failure('\n'.join(difflib.unified_diff(expected, actual, 'expected', 'done', n=2, lineterm='')))
    return run.process.machine.blocks
