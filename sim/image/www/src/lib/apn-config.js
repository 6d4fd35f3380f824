module.exports.apnData = {"apns": {"apn": [
  {"carrier": "Proximus", "-mcc": "206", "-mnc": "01", "-apn": "internet.proximus.be", "-type": "default,supl"},
  {"carrier": "TIM", "-mcc": "222", "-mnc": "01", "-apn": "ibox.tim.it", "-type": "default,supl"},
  {"carrier": "TIM MMS", "-mcc": "222", "-mnc": "01", "-apn": "unico.tim.it", "-type": "mms"},
  {"carrier": "WINDTRE", "-mcc": "222", "-mnc": "88", "-apn": "internet.it", "-type": "default,supl"},
  {"carrier": "A1", "-mcc": "232", "-mnc": "01", "-apn": "a1.net", "-type": "default,supl", "-user": "ppp@a1plus.at", "-password": "ppp"},
  {"carrier": "Vodafone UK", "-mcc": "234", "-mnc": "15", "-apn": "wap.vodafone.co.uk", "-type": "default,supl,mms", "-user": "wap", "-password": "wap"},
  {"carrier": "Telekom.de", "-mcc": "262", "-mnc": "01", "-apn": "internet.telekom", "-type": "default,supl,hipri", "-user": "t-mobile", "-password": "tm"},
  {"carrier": "Vodafone.de", "-mcc": "262", "-mnc": "02", "-apn": "web.vodafone.de", "-type": "default,supl"},
  {"carrier": "Vodafone.de MMS", "-mcc": "262", "-mnc": "02", "-apn": "event.vodafone.de", "-type": "mms"},
  {"carrier": "o2 - de", "-mcc": "262", "-mnc": "03", "-apn": "internet", "-type": "default,supl"},
  {"carrier": "Vodafone IS", "-mcc": "274", "-mnc": "02", "-apn": "gprs.is", "-type": "default,supl"},
  {"carrier": "T-Mobile", "-mcc": "310", "-mnc": "260", "-apn": "fast.t-mobile.com", "-type": "default,supl,hipri,mms"},
  {"carrier": "NTT DOCOMO", "-mcc": "440", "-mnc": "10", "-apn": "spmode.ne.jp", "-type": "default,supl"},
  {"carrier": "China Mobile", "-mcc": "460", "-mnc": "00", "-apn": "cmnet", "-type": "default,supl"},
  {"carrier": "China Unicom", "-mcc": "460", "-mnc": "01", "-apn": "3gnet", "-type": "default,supl"},
  {"carrier": "China Mobile IoT", "-mcc": "460", "-mnc": "04", "-apn": "cmiot", "-type": "default,supl"},
  {"carrier": "Chunghwa Telecom", "-mcc": "466", "-mnc": "92", "-apn": "internet", "-type": "default,supl"}
]}};
