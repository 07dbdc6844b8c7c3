"""The agent at the other end of the connections, and the queue on which these call back."""

from dataclasses import dataclass

from objects import Object

# What a case says of the agent: an attribute and its value.
TRAITS = {
    'serves': ('state', 'serves'),
    'hangs': ('state', 'hangs'),
    'is missing': ('state', 'is missing'),
    'is not ready': ('is_ready', False),
    'asks': ('should_ask', True),
    'does not ask': ('should_ask', False),
    'knows no address': ('email', None),
    # The last character that would be shown is half of one.
    'knows a long address': ('email', 'x' * 319 + '😀' + 'y' * 80),
    'can show the notes': ('can_show_notes', True),
    'cannot show the notes': ('can_show_notes', False),
}


@dataclass
class Request:
    """A message that waits for its reply."""
    connection: Object
    question: str
    reply: Object
    error_handler: Object


class Agent:
    def __init__(self, process):
        self._objc = process.objc
        self.state = 'is missing'
        self.is_ready = True
        self.should_ask = False
        self.email = 'jane@example.com'
        self.can_show_notes = True
        self._requests = []
        # What the connections' queue has yet to call before it brings replies.
        self._calls = []
        self._ended = set()

    def ask(self, proxy, question, reply):
        """A message with a reply block. Where no reply can come the proxy's error handler is called instead."""
        connection, error_handler = proxy.payload
        self._requests.append(Request(connection, question, self._objc.copy(reply), self._objc.retain(error_handler)))
        if self.state == 'is missing' or connection in self._ended:
            self.end(connection)

    def tell(self, proxy):
        """A message without a reply."""
        if self.state == 'is missing':
            self.end(proxy.payload[0])

    def end(self, connection):
        """The connection cannot be used any more, which its handler is told once."""
        self._fail_requests(connection)
        if connection not in self._ended:
            self._ended.add(connection)
            self._call_later(connection.properties['invalidationHandler'])

    def interrupt(self):
        """The agent's process ends: its connections are told, and could be used again."""
        for connection in self._objc.living('NSXPCConnection'):
            if connection not in self._ended:
                self._fail_requests(connection)
                self._call_later(connection.properties['interruptionHandler'])

    def _fail_requests(self, connection):
        for request in [each for each in self._requests if each.connection is connection]:
            self._requests.remove(request)
            self._call_later(request.error_handler, self._objc.make('NSError', 'an error'))
            self._objc.release(request.error_handler)
            self._objc.release(request.reply)

    def _call_later(self, block, *arguments):
        self._calls.append((self._objc.retain(block), arguments))

    def reply_once(self):
        """Runs the next block of the connections' queue; returns whether there was one."""
        if self._calls:
            block, arguments = self._calls.pop(0)
        elif self._requests and self.state == 'serves':
            request = self._requests.pop(0)
            self._objc.release(request.error_handler)
            block, arguments = request.reply, self._answer(request.question)
        else:
            return False
        self._objc.run(block, *arguments)
        return True

    def _answer(self, question):
        """The arguments of a reply block. Objects have one reference, which the call uses up."""
        make = self._objc.make
        if question == 'check':
            return [self.is_ready]
        if question == 'status':
            return [self.should_ask, make('NSString', f'@"{self.email}"', self.email) if self.email else None]
        if question == 'update':
            return [True]
        return [None if self.can_show_notes else make('NSError', 'an error')]
