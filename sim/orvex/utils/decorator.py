"""Per-tool registration of operation variants.

`obj_attr_decorator(record)` gives D; `D(raid_tool=kind)` gives a decorator.
Every decorated variant of one operation shares a function name; the one
whose kind matches the record is remembered under that name, and calling any
result of the chain runs it.
"""
from orvex.exception.orvex_exception import OrvexException


def obj_attr_decorator(record):
    chosen = {}

    def distributor(raid_tool):
        def register(func):
            name = func.__name__
            if raid_tool == record.raid_tool:
                chosen[name] = func

            def run():
                try:
                    selected = chosen.pop(name)
                except KeyError:
                    raise OrvexException(
                        "工具[%s]没有操作[%s]的实现" % (record.raid_tool, name)
                    ) from None
                return selected()

            run.__name__ = name
            return run

        return register

    return distributor
