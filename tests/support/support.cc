// Anchor of the test support library; the helpers live beside it.
