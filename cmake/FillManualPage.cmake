# Writes PAGE: TEMPLATE with its variables filled in. @OPTIONS@ is the answer of PROGRAM to --manual
# ARGUMENTS. SOURCE_DATE_EPOCH sets the date.
execute_process(COMMAND ${PROGRAM} --manual ${ARGUMENTS}
    OUTPUT_VARIABLE OPTIONS COMMAND_ERROR_IS_FATAL ANY)
string(TIMESTAMP DATE %Y-%m-%d UTC)
configure_file(${TEMPLATE} ${PAGE} @ONLY)
