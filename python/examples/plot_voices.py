import sys
import cachefile
import matplotlib.pyplot as plt
with cachefile.open(sys.argv[1]) as recording:
    voices = [stream for stream in recording.streams if stream.type == 4]
    figure, axes = plt.subplots(len(voices), sharex=True, squeeze=False, figsize=(9, 5))
    for axis, stream in zip(axes[:, 0], voices):
        axis.plot(stream.numpy("<i2"), linewidth=0.5)
        axis.set(ylabel=stream.name, title=f"{stream.length:,} bytes")
figure.savefig(sys.argv[2])
