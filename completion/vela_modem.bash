# Completion of vela_modem and vela_api for bash. It asks no modem: what is offered is what the programs know by
# themselves, and the router's devices.
#
# Read it from a shell's start file, or install it as /usr/share/bash-completion/completions/vela_modem.

# The candidates in $1 that begin with $2, what stands at the cursor.
_vela_offer() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

_vela_offer_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

# The buses of the USB devices there are; a command recognises those of these two hubs only.
_vela_buses() {
    local path
    for path in /sys/bus/usb/devices/[12]-1*; do
        path=${path##*/}
        [[ -e /sys/bus/usb/devices/$path && $path != *:* ]] && printf '%s\n' "$path"
    done
}

# The devices that a path of that beginning may mean.
_vela_devices() {
    local path
    for path in "$@"; do
        [[ -e $path ]] && printf '%s\n' "$path"
    done
}

_vela_modem() {
    local commands="connect connect-auto new-connect-auto disconnect sim-status AT signal cells iccid thermal carrier
        test convert check_register get_mode wifi_lte_interference"
    local word=${COMP_WORDS[COMP_CWORD]} first=1 offered
    COMPREPLY=()
    # Options and bus stand at the front, in this order.
    [[ ${COMP_WORDS[first]} == -D && $first -lt $COMP_CWORD ]] && first=$((first + 1))
    [[ ${COMP_WORDS[first]} == -B && $first -lt $COMP_CWORD ]] && first=$((first + 1))
    [[ ${COMP_WORDS[first]} == *[12]-1* && $first -lt $COMP_CWORD ]] && first=$((first + 1))
    if ((first == COMP_CWORD)); then
        offered=$commands
        case ${COMP_WORDS[COMP_CWORD - 1]} in
        -B) offered="$(_vela_buses)" ;;
        *[12]-1*) ;;
        -D) offered="-B $commands" ;;
        *) offered="-D -B $commands" ;;
        esac
        _vela_offer "$offered" "$word"
        return
    fi
    case ${COMP_WORDS[first]}:$((COMP_CWORD - first)) in
    AT:1) _vela_offer "$(_vela_devices /dev/ttyUSB* /dev/ttyACM*) AT ATI AT+CPIN? AT+CREG? AT+CSQ" "$word" ;;
    connect:1) _vela_offer "serial qmi" "$word" ;;
    connect:2)
        case ${COMP_WORDS[first + 1]} in
        qmi) _vela_offer "$(_vela_devices /dev/cdc-wdm*)" "$word" ;;
        *) _vela_offer "$(_vela_devices /dev/ttyUSB* /dev/ttyACM*)" "$word" ;;
        esac
        ;;
    convert:1) _vela_offer_files "$word" ;;
    esac
}

# The endpoints as the program tells them: "METHOD PATH" each.
_vela_endpoints() {
    vela_api "$@" list 2>/dev/null
}

_vela_api() {
    local word=${COMP_WORDS[COMP_CWORD]} first=1 plugin=()
    COMPREPLY=()
    if [[ ${COMP_WORDS[1]} == --plugin && $COMP_CWORD -gt 1 ]]; then
        if ((COMP_CWORD == 2)); then
            _vela_offer_files "$word"
            return
        fi
        plugin=(--plugin "${COMP_WORDS[2]}")
        first=3
    fi
    case ${COMP_WORDS[first]}:$((COMP_CWORD - first)) in
    *:0) _vela_offer "get post list rpcd$([[ $first == 1 ]] && printf ' --plugin')" "$word" ;;
    rpcd:1) _vela_offer "list call" "$word" ;;
    rpcd:2)
        [[ ${COMP_WORDS[first + 1]} == call ]] &&
            _vela_offer "$(_vela_endpoints "${plugin[@]}" | sed 's|^[a-z]* */modem/||; s|/|_|g')" "$word"
        ;;
    get:1 | post:1)
        _vela_offer "$(_vela_endpoints "${plugin[@]}" | sed -n "s|^${COMP_WORDS[first]} *||p")" "$word"
        ;;
    esac
}

complete -F _vela_modem vela_modem
complete -F _vela_api vela_api
