"""The places of the engine's fields, read from the headers that the bundle was compiled with.

The tagged size and the width of small integers are those of the engine of module version 85, whatever the
compiler was told; all else is what <v8-internal.h> and <v8.h> say.
"""

import re
from pathlib import Path

from failure import Failure

# The versions whose objects are as engine.py builds them. The headers of 8.6 serve to check a build.
KNOWN_VERSIONS = ('8.6', '8.7')


class Layout:
    def __init__(self, headers):
        headers = Path(headers)
        self.version = '.'.join(
            re.search(rf'^#define V8_{part}_VERSION (\d+)', (headers / 'v8-version.h').read_text(), re.MULTILINE)[1]
            for part in ('MAJOR', 'MINOR'))
        if self.version not in KNOWN_VERSIONS:
            raise Failure(f'the headers are of V8 {self.version}; the model of the engine is that of '
                          f'{" and ".join(KNOWN_VERSIONS)}')
        internals = (headers / 'v8-internal.h').read_text()
        self._constants = {'kApiSystemPointerSize': 8, 'kApiTaggedSize': 4, 'kApiInt32Size': 4,
                           'kApiInt64Size': 8, 'kApiDoubleSize': 8}
        self._read(internals.split('class Internals {')[1].split('\n};')[0])
        callback_info = (headers / 'v8.h').read_text().split('\nclass FunctionCallbackInfo {')[1]
        self._read(callback_info.split('\n};')[0])

    def _read(self, text):
        for name, value in re.findall(r'static const (?:int|uint32_t) (k\w+) =\s*([^;]+);', text):
            self._constants[name] = eval(value, {'__builtins__': {}}, self._constants)

    def __getattr__(self, name):
        try:
            return self._constants[name]
        except KeyError:
            raise Failure(f"the engine's headers have no constant {name}") from None
