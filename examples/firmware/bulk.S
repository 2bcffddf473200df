// Data that no transfer can squeeze, for speed figures: the build makes the file.
    .section .bulk, "a"
    .incbin BULK_FILE
