"""The agent at the other end of the connection, and the connection's queue."""

from dataclasses import dataclass


@dataclass
class Behaviour:
    """How an agent answers."""
    # 'serves', 'is missing' or 'hangs'.
    state: str = 'is missing'
    is_ready: bool = True
    should_ask: bool = False
    email: object = 'jane@example.com'
    notes_error: bool = False


class Agent:
    def __init__(self, process):
        self._process = process
        self.behaviour = Behaviour()
        # What the connection's queue has yet to do.
        self.replies = []
        self._ended = set()

    def ask(self, proxy, request, reply):
        """A message with a reply block. A missing agent has the proxy's error handler called instead."""
        connection, error_handler = proxy.payload
        objc = self._process.objc
        kept = objc.copy(reply)
        if self.behaviour.state == 'serves' and connection not in self._ended:
            self.replies.append((kept, self._answer(request)))
        elif self.behaviour.state == 'hangs' and connection not in self._ended:
            objc.release(kept)
        else:
            objc.release(kept)
            if error_handler:
                error = objc.make('NSError', 'an error')
                self.replies.append((objc.retain(error_handler), [('p', error)]))
            self.end(connection)

    def tell(self, proxy):
        """A message without a reply."""
        if self.behaviour.state == 'is missing':
            self.end(proxy.payload[0])

    def end(self, connection):
        """The connection cannot be used any more, which its handler is told once."""
        if connection not in self._ended:
            self._ended.add(connection)
            handler = connection.properties.get('invalidationHandler')
            if handler:
                self.replies.append((self._process.objc.retain(handler), []))

    def interrupt(self):
        """The agent ends: the open connections' handlers are told, and no reply comes any more."""
        objc = self._process.objc
        for block, arguments in self.replies:
            objc.release(block)
            for kind, value in arguments:
                if kind == 'p':
                    objc.release(value)
        self.replies = [(objc.retain(connection.properties['interruptionHandler']), [])
                        for connection in objc.living('NSXPCConnection') if connection not in self._ended]

    def _answer(self, request):
        objc = self._process.objc
        if request == 'check':
            return [('B', self.behaviour.is_ready)]
        if request == 'status':
            email = self.behaviour.email
            return [('B', self.behaviour.should_ask),
                    ('p', objc.make('NSString', f'@"{email}"', email) if email else None)]
        if request == 'update':
            return [('B', True)]
        return [('p', objc.make('NSError', 'an error') if self.behaviour.notes_error else None)]

    def reply_once(self):
        """Runs the next block of the connection's queue."""
        objc = self._process.objc
        block, arguments = self.replies.pop(0)
        pool = objc.push_pool()
        objc.invoke(block, *(value if kind == 'B' else value.address if value else 0 for kind, value in arguments),
                    kinds=''.join(kind for kind, _ in arguments))
        objc.pop_pool(pool)
        objc.release(block)
        for kind, value in arguments:
            if kind == 'p':
                objc.release(value)

    def reply(self):
        """Runs everything that the connection's queue has to do."""
        while self.replies:
            self.reply_once()
