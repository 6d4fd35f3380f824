module.exports.apnData = {"apns": {"apn": [
  {"carrier": "20601", "-mcc": "206", "-mnc": "01", "-apn": "internet.example", "-type": "default,supl"},
  {"carrier": "22201", "-mcc": "222", "-mnc": "01", "-apn": "ibox.example", "-type": "default,supl"},
  {"carrier": "22288", "-mcc": "222", "-mnc": "88", "-apn": "internet.spusu.example", "-type": "default,supl"},
  {"carrier": "23201", "-mcc": "232", "-mnc": "01", "-apn": "a1.example", "-type": "default,supl", "-user": "user", "-password": "user"},
  {"carrier": "23415", "-mcc": "234", "-mnc": "15", "-apn": "pp.example", "-type": "default,supl", "-user": "web", "-password": "web"},
  {"carrier": "26202", "-mcc": "262", "-mnc": "02", "-apn": "web.example", "-type": "default,supl"},
  {"carrier": "26202 MMS", "-mcc": "262", "-mnc": "02", "-apn": "mms.example", "-type": "mms"},
  {"carrier": "27402", "-mcc": "274", "-mnc": "02", "-apn": "gprs.example", "-type": "default,supl"},
  {"carrier": "44010", "-mcc": "440", "-mnc": "10", "-apn": "spmode.example", "-type": "default,supl"},
  {"carrier": "46000", "-mcc": "460", "-mnc": "00", "-apn": "cmnet.example", "-type": "default,supl"},
  {"carrier": "46001", "-mcc": "460", "-mnc": "01", "-apn": "net3g.example", "-type": "default,supl"},
  {"carrier": "46004", "-mcc": "460", "-mnc": "04", "-apn": "cmmtm.example", "-type": "default,supl"},
  {"carrier": "46692", "-mcc": "466", "-mnc": "92", "-apn": "internet.example", "-type": "default,supl"}
]}}
