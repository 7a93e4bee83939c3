"""Ready-made parts for an interactive command shell on Keyline.

They are plain Python beside the module and use its methods alone.
"""
