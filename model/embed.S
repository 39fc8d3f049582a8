/* Puts the two model files into the read-only data, aligned for the vector loads of the inference library. */
    .section .rodata
    .balign 64
    .global person_model_structure, person_model_structure_end
person_model_structure:
    .incbin "person.param.bin"
person_model_structure_end:
    .byte 0
    .balign 64
    .global person_model_weights, person_model_weights_end
person_model_weights:
    .incbin "person.model.bin"
person_model_weights_end:
    .byte 0
#if defined(__linux__) && defined(__ELF__)
    .section .note.GNU-stack, "", %progbits
#endif
