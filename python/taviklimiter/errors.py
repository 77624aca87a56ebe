"""The library's result codes as Python exceptions, one class per code."""

LMTR_OK = 0


class LimiterError(Exception):
    """A call into the library returned a negative result code (in .code)."""

    code = None

    def __init__(self, message="", code=None):
        if code is not None:
            self.code = code
        super().__init__(f"{type(self).__name__} ({self.code})" + (f": {message}" if message else ""))


class LMTR_ERR_NULL_POINTER(LimiterError):
    """A required pointer was null."""
    code = -1


class LMTR_ERR_PCM_FORMAT(LimiterError):
    """A format code above 2, or an instance record that holds a damaged one."""
    code = -3


class LMTR_ERR_COMMAND(LimiterError):
    """A parameter command above 3."""
    code = -4


class LMTR_ERR_STATE(LimiterError):
    """A state code above 1."""
    code = -5


ERRORS = {cls.code: cls for cls in
          (LMTR_ERR_NULL_POINTER, LMTR_ERR_PCM_FORMAT, LMTR_ERR_COMMAND, LMTR_ERR_STATE)}


def check(code, what=""):
    """Returns LMTR_OK; raises the exception class of any other code."""
    code = int(code)
    if code == LMTR_OK:
        return code
    cls = ERRORS.get(code)
    if cls is None:
        raise LimiterError(f"unknown result code {code}" + (f" from {what}" if what else ""), code)
    raise cls(what)
