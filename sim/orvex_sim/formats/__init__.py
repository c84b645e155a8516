"""Formatter templates and treatments, one mixin per subsystem."""


class Template(dict):
    """A template mapping ({"contents": {tool: {output key: raw key}}}).

    Some templates are also operations of the formatter; those pass a
    function, which calling the template runs.
    """

    def __init__(self, contents, func=None):
        super().__init__({"contents": contents})
        self._func = func

    def __call__(self, *args, **kwargs):
        if self._func is None:
            raise TypeError("template is not callable")
        return self._func(*args, **kwargs)
