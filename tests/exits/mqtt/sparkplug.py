"""Payloads of Sparkplug B, read and written by the protobuf of Google: independent of what is tested."""

import pathlib
import subprocess
import tempfile

from google.protobuf import descriptor_pb2, descriptor_pool

try:
    from google.protobuf.message_factory import GetMessageClass
except ImportError:  # before 4.22
    from google.protobuf.message_factory import MessageFactory

    def GetMessageClass(descriptor):  # pylint: disable=invalid-name
        return MessageFactory().GetPrototype(descriptor)


def _message_class():
    folder = pathlib.Path(__file__).parent
    with tempfile.NamedTemporaryFile() as described:
        subprocess.run(["protoc", f"--proto_path={folder}", f"--descriptor_set_out={described.name}",
                        "sparkplug_b.proto"], check=True)
        files = descriptor_pb2.FileDescriptorSet.FromString(described.read())
    pool = descriptor_pool.DescriptorPool()
    for file in files.file:
        pool.Add(file)
    return GetMessageClass(pool.FindMessageTypeByName("reading.Payload"))


Payload = _message_class()


def read(data):
    """The payload in `data`; an error if something in it is no field of the standard."""
    payload = Payload.FromString(bytes(data))
    assert payload.IsInitialized()
    again = Payload.FromString(bytes(data))
    again.DiscardUnknownFields()
    assert again.ByteSize() == payload.ByteSize(), "unknown fields"
    return payload


def value(metric):
    """What a metric holds, and in which field: ("int", 5), or None."""
    field = metric.WhichOneof("content")
    return (field, getattr(metric, field)) if field else None


def properties(metric):
    """The properties of a metric by their keys: (type, field, value)."""
    assert len(metric.properties.keys) == len(metric.properties.values)
    return {key: (item.type, *value(item))
            for key, item in zip(metric.properties.keys, metric.properties.values)}
