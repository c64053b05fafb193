#!/usr/bin/python3
"""Writes the two tiny ONNX networks the smart-mask tests load in place of
the salient-object model (run in this folder; needs Debian's python3-onnx):

  relu-three-channels.onnx  runs on any picture but returns three channels;
  conv-four-channels.onnx   wants four input channels, so running it fails.
"""

import numpy
import onnx
from onnx import TensorProto, helper, numpy_helper


def save(graph, name):
    model = helper.make_model(graph, producer_name="lumivale-tests",
                              opset_imports=[helper.make_opsetid("", 13)])
    model.ir_version = 8
    onnx.checker.check_model(model)
    onnx.save(model, name)


def tensor(name, channels):
    return helper.make_tensor_value_info(name, TensorProto.FLOAT, [1, channels, 320, 320])


save(helper.make_graph([helper.make_node("Relu", ["input"], ["output"])], "three_channels",
                       [tensor("input", 3)], [tensor("output", 3)]),
     "relu-three-channels.onnx")
weight = numpy_helper.from_array(numpy.full((1, 4, 1, 1), 0.25, dtype=numpy.float32), "weight")
save(helper.make_graph([helper.make_node("Conv", ["input", "weight"], ["output"], kernel_shape=[1, 1])],
                       "four_channels", [tensor("input", 4)], [tensor("output", 1)], [weight]),
     "conv-four-channels.onnx")
