"""Compiles probe.mm as the binding is compiled, for one slice."""

import json
import shlex
import subprocess
from pathlib import Path

from engine import ScriptFunction
from failure import Failure
from image import read_thin_image

SOURCE = Path(__file__).with_name('probe.mm')
BINDING = 'pellmar-lib-mapping.mm'
DEFINES = ('V8_COMPRESS_POINTERS', 'V8_31BIT_SMIS_ON_64BIT_ARCH', 'V8_REVERSE_JSARGS')

# In the order of the table in probe.mm.
NAMES = ('probeTypes', 'probeLastArgument', 'probeReceiver', 'probeNegativeInteger', 'probeLargeInteger',
         'probeIsLastUndefined')


def compile_command(build, architecture):
    """The entry of compile_commands.json for the binding in a slice's build, or None."""
    file = Path(build) / architecture / 'compile_commands.json'
    if not file.is_file():
        return None
    return next((entry for entry in json.loads(file.read_text()) if entry['file'].endswith(BINDING)), None)


def check_defines(entry):
    defined = [argument[2:] for argument in shlex.split(entry['command']) if argument.startswith('-D')]
    missing = [define for define in DEFINES if define not in defined]
    if missing:
        raise Failure(f'the binding is compiled without {", ".join(missing)}')


def build(entry, architecture, folder):
    """Compiles and links the probe; returns its image."""
    file = Path(folder) / f'probe-{architecture}'
    arguments = iter(shlex.split(entry['command']))
    command = []
    for argument in arguments:
        if argument == '-o':
            next(arguments)
        elif argument != '-c' and not argument.endswith(BINDING):
            command.append(argument)
    command += [str(SOURCE), '-o', str(file), '-bundle', '-fuse-ld=lld', '-Wl,-undefined,dynamic_lookup']
    result = subprocess.run(command, cwd=entry['directory'], capture_output=True, text=True, check=False)
    if result.returncode != 0:
        raise Failure(result.stderr)
    return read_thin_image(file, architecture)


def functions(process):
    return {name: ScriptFunction(name, handler=address)
            for name, address in zip(NAMES, process.pointers('__probes'))}
