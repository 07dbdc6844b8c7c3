"""Says of a model's methods which imported functions they stand for."""

import functools


def imported(symbol, kinds='', result='v'):
    """The method stands for `symbol`, whose arguments and result have the types of abi.py."""
    def mark(method):
        method.__dict__.setdefault('imports', []).append((symbol, kinds, result))
        return method
    return mark


def imported_raw(symbol):
    """The method stands for `symbol`, reads the `Call` itself and leaves the result."""
    return imported(symbol, None)


def functions_of(model):
    """What a model's methods stand for: a function of a `Call` by symbol."""
    found = {}
    for name in dir(type(model)):
        method = getattr(type(model), name)
        for symbol, kinds, result in getattr(method, 'imports', []):
            bound = getattr(model, name)
            found[symbol] = bound if kinds is None else functools.partial(_run, bound, kinds, result)
    return found


def _run(method, kinds, result, call):
    value = method(*call.arguments(kinds))
    call.finish(result, value)
